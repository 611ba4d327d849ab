#include "base/module.h"

#include <dlfcn.h>

#include <gtest/gtest.h>

#include "base/out.h"
#include "stdout_capture.h"

namespace tallowbrook {
namespace {

TEST(ModulePath, IsBesideTheExecutablesBinDirectory) {
  EXPECT_EQ(modulePath("/usr/bin/tallowbrook-helper", "ocr"),
            "/usr/lib/tallowbrook-helper/tallowbrook-ocr.so");
  EXPECT_EQ(modulePath("/opt/tb/build/bin/tallowbrook-helper", "record"),
            "/opt/tb/build/lib/tallowbrook-helper/tallowbrook-record.so");
  EXPECT_EQ(modulePath("/bin/tallowbrook-helper", "pdf"),
            "/lib/tallowbrook-helper/tallowbrook-pdf.so");
  EXPECT_EQ(modulePath("bin/tallowbrook-helper", "pdf"),
            "./lib/tallowbrook-helper/tallowbrook-pdf.so");
}

TEST(ExecutablePath, NamesTheRunningProgram) {
  std::string path = executablePath();
  ASSERT_FALSE(path.empty());
  EXPECT_NE(path.find("base-unit-tests"), std::string::npos) << path;
}

TEST(OpenModule, LoadsAModuleAndFindsItsEntry) {
  void* module = openModule(TEST_MODULE_PATH);
  ASSERT_NE(module, nullptr);
  auto answer =
      reinterpret_cast<int (*)()>(moduleSymbol(module, "test", "tallowbrook_test_module_answer"));
  EXPECT_EQ(answer(), 42);
}

TEST(LoadModuleDeathTest, MissingModuleFailsWithAClearMessage) {
  StdoutCapture capture;
  EXPECT_EXIT(loadModule("nosuch"), testing::ExitedWithCode(1), "");
  auto doc = Json::parse(capture.text());
  EXPECT_EQ(doc["type"], "error");
  std::string message = doc["message"];
  EXPECT_EQ(message.rfind("could not load the nosuch module: ", 0), 0u) << message;
  EXPECT_NE(message.find("tallowbrook-nosuch.so"), std::string::npos) << message;
}

TEST(ModuleSymbolDeathTest, MissingEntryFails) {
  void* module = openModule(TEST_MODULE_PATH);
  ASSERT_NE(module, nullptr);
  StdoutCapture capture;
  EXPECT_EXIT(moduleSymbol(module, "test", "no_such_entry"), testing::ExitedWithCode(1), "");
  EXPECT_EQ(Json::parse(capture.text())["message"],
            "the test module has no no_such_entry; reinstall tallowbrook-helper");
}

}  // namespace
}  // namespace tallowbrook
