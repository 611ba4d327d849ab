// `capabilities` against real and stand-in GPU libraries.
#include <glob.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include <gtest/gtest.h>

#include "run_helper.h"

namespace {

const std::string kFakeVulkan = std::string(FAKE_GPU_DIR) + "/vulkan";
const std::string kEmptyVulkan = std::string(FAKE_GPU_DIR) + "/empty-vulkan";
const std::string kFakeNvml = std::string(FAKE_GPU_DIR) + "/nvml";

std::string lavapipeIcd() {
  glob_t found{};
  std::string path;
  if (glob("/usr/share/vulkan/icd.d/lvp_icd.*.json", 0, nullptr, &found) == 0) {
    path = found.gl_pathv[0];
  }
  globfree(&found);
  return path;
}

// Runs `capabilities` and returns its one report; expects status 0 and a silent stderr.
nlohmann::json report(const RunOptions& options, std::vector<std::string> extra = {}) {
  std::vector<std::string> words{"capabilities"};
  words.insert(words.end(), extra.begin(), extra.end());
  auto run = runHelper(words, options);
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.err, "");
  auto lines = jsonLines(run.out);
  EXPECT_EQ(lines.size(), 1u) << run.out;
  return lines.empty() ? nlohmann::json() : lines[0];
}

void expectNoGpu(const nlohmann::json& r) {
  EXPECT_EQ(r["metal"], false);
  EXPECT_EQ(r["gpuName"], "");
  EXPECT_EQ(r["gpuRecommendedMaxWorkingSetBytes"], 0);
  EXPECT_EQ(r["gpuUnifiedMemory"], false);
}

// A fake loader first in the search path; NVML present but without a driver unless given. The
// fake loader stands in for the GPU too, so drivers are named (VK_DRIVER_FILES, which it
// ignores): the helper then asks Vulkan even on a machine without GPU device nodes.
RunOptions withFakes(const std::string& vulkanDir, const std::string& devices,
                     const std::string& nvml = "") {
  RunOptions options;
  options.env = {{"LD_LIBRARY_PATH", vulkanDir + ":" + kFakeNvml},
                 {"VK_DRIVER_FILES", "/nonexistent/fake-icd.json"}};
  if (!devices.empty()) options.env.push_back({"FAKE_VULKAN_DEVICES", devices});
  if (!nvml.empty()) options.env.push_back({"FAKE_NVML", nvml});
  options.unsetEnv = {"FAKE_VULKAN_DEVICES", "FAKE_NVML"};
  return options;
}

// Whether this machine has a GPU device node, as the helper looks for one.
bool machineHasGpuNodes() {
  glob_t found{};
  bool any = false;
  for (const char* pattern : {"/sys/class/drm/renderD[0-9]*", "/dev/nvidia[0-9]*", "/dev/dxg"}) {
    if (glob(pattern, 0, nullptr, &found) == 0) any = true;
    globfree(&found);
  }
  return any;
}

// The libraries a run of `capabilities` loaded (the loader's LD_DEBUG=files trace, written to
// a file since standard error is silenced while the GPU is probed).
std::string librariesLoaded(RunOptions options) {
  char dir[] = "/tmp/tallowbrook-ld-debug-XXXXXX";
  std::string folder = mkdtemp(dir);
  options.env.push_back({"LD_DEBUG", "files"});
  options.env.push_back({"LD_DEBUG_OUTPUT", folder + "/trace"});
  auto run = runHelper({"capabilities"}, options);
  EXPECT_EQ(run.status, 0);
  std::string trace;
  glob_t found{};
  if (glob((folder + "/trace*").c_str(), 0, nullptr, &found) == 0) {
    for (size_t i = 0; i < found.gl_pathc; ++i) {
      std::ifstream in(found.gl_pathv[i]);
      trace += std::string(std::istreambuf_iterator<char>(in), {});
    }
  }
  globfree(&found);
  std::filesystem::remove_all(folder);
  return trace;
}

TEST(Capabilities, OnlyACpuVulkanDeviceIsNoGpu) {
  std::string icd = lavapipeIcd();
  ASSERT_FALSE(icd.empty()) << "mesa-vulkan-drivers (lavapipe) is not installed";
  RunOptions options;
  // No model: it is looked for where there is none.
  options.env = {{"VK_ICD_FILENAMES", icd},
                 {"VK_DRIVER_FILES", icd},
                 {"LD_LIBRARY_PATH", kFakeNvml},
                 {"TALLOWBROOK_MODEL", "/nonexistent/model.gguf"}};
  options.unsetEnv = {"FAKE_NVML"};
  auto r = report(options);
  EXPECT_EQ(r.size(), 8u);
  EXPECT_EQ(r["type"], "capabilities");
  EXPECT_EQ(r["vision"], true);
  expectNoGpu(r);
  EXPECT_EQ(r["localModel"], false);
  EXPECT_EQ(r["localModelReason"], "modelNotReady");
}

TEST(Capabilities, WithoutAGpuDeviceNoVulkanDriverIsLoaded) {
  // Mesa's drivers (lavapipe and radv load LLVM) stay unloaded unless the machine has a GPU.
  RunOptions options;
  options.unsetEnv = {"VK_ICD_FILENAMES", "VK_DRIVER_FILES", "VK_ADD_DRIVER_FILES",
                      "LD_LIBRARY_PATH"};
  std::string trace = librariesLoaded(options);
  ASSERT_NE(trace.find("tallowbrook-helper"), std::string::npos) << "no trace was written";
  if (machineHasGpuNodes()) {
    EXPECT_NE(trace.find("libvulkan.so.1"), std::string::npos);
  } else {
    EXPECT_EQ(trace.find("libvulkan"), std::string::npos) << trace;
  }
}

TEST(Capabilities, NamedDriversAreAskedWithoutAGpuDevice) {
  std::string icd = lavapipeIcd();
  ASSERT_FALSE(icd.empty()) << "mesa-vulkan-drivers (lavapipe) is not installed";
  RunOptions options;
  options.env = {{"VK_DRIVER_FILES", icd}};
  options.unsetEnv = {"VK_ICD_FILENAMES", "VK_ADD_DRIVER_FILES", "LD_LIBRARY_PATH"};
  std::string trace = librariesLoaded(options);
  EXPECT_NE(trace.find("libvulkan_lvp"), std::string::npos);
}

TEST(Capabilities, NoDriverIsNoGpu) {
  RunOptions options;
  options.env = {{"VK_ICD_FILENAMES", "/nonexistent/icd.json"},
                 {"VK_DRIVER_FILES", "/nonexistent/icd.json"},
                 {"LD_LIBRARY_PATH", kFakeNvml}};
  options.unsetEnv = {"FAKE_NVML"};
  expectNoGpu(report(options));
  expectNoGpu(report(withFakes(kFakeVulkan, "")));
}

TEST(Capabilities, BrokenLoaderIsNoGpu) {
  expectNoGpu(report(withFakes(kEmptyVulkan, "")));
}

TEST(Capabilities, DiscreteGpuFromVulkan) {
  auto r = report(withFakes(kFakeVulkan,
                            "cpu|llvmpipe|1000:1;discrete|NVIDIA H100 80GB HBM3|"
                            "1024:0,85520809984:1,268435456:1"));
  EXPECT_EQ(r.size(), 8u);
  EXPECT_EQ(r["metal"], true);
  EXPECT_EQ(r["gpuName"], "NVIDIA H100 80GB HBM3");
  EXPECT_EQ(r["gpuRecommendedMaxWorkingSetBytes"].get<uint64_t>(), 85520809984u);
  EXPECT_EQ(r["gpuUnifiedMemory"], false);
}

TEST(Capabilities, DiscreteBeatsIntegratedAndIntegratedIsUnified) {
  auto both = report(withFakes(kFakeVulkan,
                               "integrated|Intel Iris Xe|17179869184:1;discrete|Radeon RX 7600|"
                               "8589934592:1"));
  EXPECT_EQ(both["gpuName"], "Radeon RX 7600");
  EXPECT_EQ(both["gpuUnifiedMemory"], false);

  auto integrated = report(withFakes(kFakeVulkan,
                                     "cpu|llvmpipe|1:1;integrated|Intel Iris Xe|"
                                     "17179869184:1,4:0"));
  EXPECT_EQ(integrated["metal"], true);
  EXPECT_EQ(integrated["gpuName"], "Intel Iris Xe");
  EXPECT_EQ(integrated["gpuRecommendedMaxWorkingSetBytes"].get<uint64_t>(), 17179869184u);
  EXPECT_EQ(integrated["gpuUnifiedMemory"], true);
}

TEST(Capabilities, NvmlStandsInWhenVulkanHasNoGpu) {
  auto cpuOnly =
      report(withFakes(kFakeVulkan, "cpu|llvmpipe|1:1", "NVIDIA A100-SXM4-40GB|42949672960"));
  EXPECT_EQ(cpuOnly["metal"], true);
  EXPECT_EQ(cpuOnly["gpuName"], "NVIDIA A100-SXM4-40GB");
  EXPECT_EQ(cpuOnly["gpuRecommendedMaxWorkingSetBytes"].get<uint64_t>(), 42949672960u);
  EXPECT_EQ(cpuOnly["gpuUnifiedMemory"], false);

  auto noLoader = report(withFakes(kEmptyVulkan, "", "Tesla T4|16106127360"));
  EXPECT_EQ(noLoader["gpuName"], "Tesla T4");
}

TEST(Capabilities, GpuNameSlashesAreEscaped) {
  auto run = runHelper({"capabilities"}, withFakes(kFakeVulkan, "discrete|Radeon Pro/W7900|1:1"));
  EXPECT_NE(run.out.find(R"("gpuName":"Radeon Pro\/W7900")"), std::string::npos) << run.out;
}

TEST(Capabilities, ExtraWordsDoNotChangeTheReport) {
  auto options = withFakes(kFakeVulkan, "discrete|GPU|1:1");
  auto plain = runHelper({"capabilities"}, options);
  auto extra = runHelper({"capabilities", "--json", "/tmp/x", "pdf-page"}, options);
  EXPECT_EQ(plain.status, 0);
  EXPECT_EQ(extra.status, 0);
  EXPECT_EQ(plain.out, extra.out);
}

}  // namespace
