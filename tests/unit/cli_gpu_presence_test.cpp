// Finding GPU device nodes before any GPU library is loaded.
#include "cli/gpu_presence.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

namespace {

namespace fs = std::filesystem;
using tallowbrook::gpuDeviceNodesPresent;

// A scratch sysfs drm folder and /dev folder holding the entries a test names.
class Nodes : public testing::Test {
 protected:
  void SetUp() override {
    char pattern[] = "/tmp/tallowbrook-gpu-nodes-XXXXXX";
    root_ = mkdtemp(pattern);
    fs::create_directories(drm());
    fs::create_directories(dev());
  }
  void TearDown() override { fs::remove_all(root_); }
  std::string drm() const { return root_ + "/sys/class/drm"; }
  std::string dev() const { return root_ + "/dev"; }
  void add(const std::string& folder, const std::string& name) {
    std::ofstream(folder + "/" + name).put('\n');
  }
  bool present() const { return gpuDeviceNodesPresent(drm(), dev()); }

 private:
  std::string root_;
};

TEST_F(Nodes, NothingIsNoGpu) {
  EXPECT_FALSE(present());
}

TEST_F(Nodes, ARenderNodeIsAGpu) {
  add(drm(), "renderD128");
  EXPECT_TRUE(present());
}

TEST_F(Nodes, DisplayOutputsAndControlNodesAreNotGpus) {
  // A display controller without a render node (a simple framebuffer) and NVIDIA's control
  // devices without a GPU node.
  add(drm(), "card0");
  add(drm(), "card0-HDMI-A-1");
  add(drm(), "version");
  add(drm(), "renderD");
  add(dev(), "nvidiactl");
  add(dev(), "nvidia-uvm");
  add(dev(), "nvidia-modeset");
  EXPECT_FALSE(present());
}

TEST_F(Nodes, AnNvidiaDeviceNodeIsAGpu) {
  add(dev(), "nvidia0");
  EXPECT_TRUE(present());
}

TEST_F(Nodes, WslsParavirtualGpuIsAGpu) {
  add(dev(), "dxg");
  EXPECT_TRUE(present());
}

TEST(GpuPresence, MissingFoldersAreEmpty) {
  EXPECT_FALSE(gpuDeviceNodesPresent("/nonexistent/drm", "/nonexistent/dev"));
}

}  // namespace
