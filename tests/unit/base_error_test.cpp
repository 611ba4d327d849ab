#include "base/error.h"

#include <gtest/gtest.h>

#include <system_error>

#include "base/module.h"
#include "record/record_error.h"

namespace tallowbrook {
namespace {

TEST(Error, CarriesTheMessageAsItStands) {
  Error error("could not create /tmp/x.wav");
  EXPECT_STREQ(error.what(), "could not create /tmp/x.wav");
  EXPECT_EQ(error.message(), "could not create /tmp/x.wav");
}

TEST(Error, IsARuntimeError) {
  try {
    throw Error("own words");
  } catch (const std::runtime_error& error) {
    EXPECT_STREQ(error.what(), "own words");
    return;
  }
  FAIL() << "not caught as std::runtime_error";
}

TEST(Error, TheRecordersErrorIsOne) {
  try {
    throw RecordError{"no microphone input is available."};
  } catch (const Error& error) {
    EXPECT_EQ(error.message(), "no microphone input is available.");
    return;
  }
  FAIL() << "RecordError not caught as Error";
}

TEST(Error, APlatformErrorIsNotOne) {
  // The command layers tell the two apart: own words as they stand, platform errors prefixed.
  bool own = false;
  bool platform = false;
  try {
    throw std::system_error(ENOSPC, std::system_category());
  } catch (const Error&) {
    own = true;
  } catch (const std::exception&) {
    platform = true;
  }
  EXPECT_FALSE(own);
  EXPECT_TRUE(platform);
}

TEST(Error, ThrownInsideAModuleIsCaughtAsOne) {
  void* module = openModule(TEST_MODULE_PATH);
  auto thrower =
      reinterpret_cast<void (*)()>(moduleSymbol(module, "test", "tallowbrook_test_module_throw"));
  try {
    thrower();
  } catch (const Error& error) {
    EXPECT_EQ(error.message(), "thrown inside a module");
    return;
  } catch (...) {
    FAIL() << "the module's error was not caught as Error";
  }
  FAIL() << "nothing was thrown";
}

TEST(OpenModule, AModuleThatDoesNotLoadThrowsTheLoadersReason) {
  try {
    openModule("/nonexistent/tallowbrook-ocr.so");
  } catch (const Error& error) {
    EXPECT_NE(error.message().find("/nonexistent/tallowbrook-ocr.so"), std::string::npos)
        << error.message();
    return;
  }
  FAIL() << "nothing was thrown";
}

}  // namespace
}  // namespace tallowbrook
