// Where the model and llama.cpp are looked for, and the cheap availability check.
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <map>
#include <string>

#include <gtest/gtest.h>

#include "answer/model_availability.h"
#include "answer/model_location.h"

namespace {

using namespace tallowbrook;
using namespace tallowbrook::Answer;

std::map<std::string, std::string>* environment = nullptr;

std::optional<std::string> fakeEnv(const char* name) {
  auto found = environment->find(name);
  if (found == environment->end()) return std::nullopt;
  return found->second;
}

std::string existing;
bool existsOnly(const std::string& path) {
  return path == existing;
}

class ModelLocation : public ::testing::Test {
 protected:
  void SetUp() override {
    environment = &env_;
    existing.clear();
    char dir[] = "/tmp/tallowbrook-location-XXXXXX";
    ASSERT_NE(mkdtemp(dir), nullptr);
    dir_ = dir;
  }
  void TearDown() override {
    environment = nullptr;
    std::system(("rm -rf '" + dir_ + "'").c_str());
  }
  void write(const std::string& path, const std::string& bytes, mode_t mode = 0644) {
    std::system(("mkdir -p \"$(dirname '" + dir_ + "/" + path + "')\"").c_str());
    std::ofstream(dir_ + "/" + path, std::ios::binary) << bytes;
    chmod((dir_ + "/" + path).c_str(), mode);
  }
  // An installed layout under dir_: bin/tallowbrook-helper, the llama module, llama.cpp's
  // libraries with two CPU backends.
  void install() {
    write("bin/tallowbrook-helper", "");
    write("lib/tallowbrook-helper/tallowbrook-llama.so", "");
    write("lib/tallowbrook-helper/llama/libllama.v0.4.0.so", "");
    write("lib/tallowbrook-helper/llama/libggml-cpu-x64.so", "");
    write("lib/tallowbrook-helper/llama/libggml-cpu-haswell.so", "");
    env_ = {{"HOME", dir_ + "/home"}};
  }
  void remove(const std::string& path) {
    std::system(("rm -rf '" + dir_ + "/" + path + "'").c_str());
  }
  ModelAvailability check(ModelSetup* setup = nullptr) {
    return checkModel(fakeEnv, dir_ + "/bin/tallowbrook-helper", setup);
  }

  std::map<std::string, std::string> env_;
  std::string dir_;
};

}  // namespace

TEST_F(ModelLocation, ModelPathOrder) {
  env_ = {{"HOME", "/home/ada"}};
  EXPECT_EQ(modelPath(fakeEnv, existsOnly), "/usr/share/tallowbrook/model.gguf");
  existing = "/home/ada/.local/share/tallowbrook/model.gguf";
  EXPECT_EQ(modelPath(fakeEnv, existsOnly), existing);
  env_["XDG_DATA_HOME"] = "/data";
  EXPECT_EQ(modelPath(fakeEnv, existsOnly), "/usr/share/tallowbrook/model.gguf");
  existing = "/data/tallowbrook/model.gguf";
  EXPECT_EQ(modelPath(fakeEnv, existsOnly), existing);
  env_["XDG_DATA_HOME"] = "relative/data";  // not a valid XDG path: the default applies
  existing = "/home/ada/.local/share/tallowbrook/model.gguf";
  EXPECT_EQ(modelPath(fakeEnv, existsOnly), existing);
  env_["TALLOWBROOK_MODEL"] = "/models/qwen.gguf";  // used even when it does not exist
  EXPECT_EQ(modelPath(fakeEnv, existsOnly), "/models/qwen.gguf");
  env_["TALLOWBROOK_MODEL"] = "";
  EXPECT_EQ(modelPath(fakeEnv, existsOnly), existing);
}

TEST_F(ModelLocation, LibrariesBesideTheModules) {
  EXPECT_EQ(llamaLibraryDirectory("/usr/bin/tallowbrook-helper"),
            "/usr/lib/tallowbrook-helper/llama");
  EXPECT_EQ(llamaLibraryDirectory("/work/build/bin/tallowbrook-helper"),
            "/work/build/lib/tallowbrook-helper/llama");
}

TEST_F(ModelLocation, AvailableWithRuntimeAndAGgufFile) {
  install();
  write("home/.local/share/tallowbrook/model.gguf", std::string("GGUF\x03\0\0\0", 8));
  ModelSetup setup;
  auto a = check(&setup);
  EXPECT_TRUE(a.available);
  EXPECT_EQ(a.reason, "");
  EXPECT_EQ(setup.llamaModule, dir_ + "/lib/tallowbrook-helper/tallowbrook-llama.so");
  EXPECT_EQ(setup.jinjaModule, dir_ + "/lib/tallowbrook-helper/tallowbrook-llama-jinja.so");
  EXPECT_EQ(setup.libraryDir, dir_ + "/lib/tallowbrook-helper/llama");
  EXPECT_EQ(setup.model, dir_ + "/home/.local/share/tallowbrook/model.gguf");
}

TEST_F(ModelLocation, ModelNotReadyWithoutAUsableFile) {
  install();
  auto missing = check();
  EXPECT_FALSE(missing.available);
  EXPECT_EQ(missing.reason, "modelNotReady");
  write("other.gguf", "not a model");
  env_["TALLOWBROOK_MODEL"] = dir_ + "/other.gguf";
  EXPECT_EQ(check().reason, "modelNotReady");
  write("short.gguf", "GG");
  env_["TALLOWBROOK_MODEL"] = dir_ + "/short.gguf";
  EXPECT_EQ(check().reason, "modelNotReady");
  env_["TALLOWBROOK_MODEL"] = dir_;  // a folder
  EXPECT_EQ(check().reason, "modelNotReady");
}

TEST_F(ModelLocation, DeviceNotEligibleWithoutTheLibrary) {
  install();
  write("m.gguf", "GGUF");
  env_["TALLOWBROOK_MODEL"] = dir_ + "/m.gguf";
  EXPECT_TRUE(check().available);

  remove("lib/tallowbrook-helper/llama/libggml-cpu-x64.so");
  EXPECT_TRUE(check().available);  // one backend is enough
  remove("lib/tallowbrook-helper/llama/libggml-cpu-haswell.so");
  EXPECT_EQ(check().reason, "deviceNotEligible");
  write("lib/tallowbrook-helper/llama/libggml-cpu-x64.so", "");
  EXPECT_TRUE(check().available);

  remove("lib/tallowbrook-helper/llama/libllama.v0.4.0.so");
  EXPECT_EQ(check().reason, "deviceNotEligible");
  write("lib/tallowbrook-helper/llama/libllama.v0.4.0.so", "");
  remove("lib/tallowbrook-helper/tallowbrook-llama.so");
  EXPECT_EQ(check().reason, "deviceNotEligible");
  // Device first: without the library, a missing model is not the reason given.
  env_["TALLOWBROOK_MODEL"] = dir_ + "/none.gguf";
  EXPECT_EQ(check().reason, "deviceNotEligible");
}
