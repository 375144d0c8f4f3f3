// Host data paths: the device folder moves under the root, nothing else
// changes, and nothing is ever truncated.
#include "host_data_path.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "cam_data_path.h"

namespace {

std::string mapped(const char* path, size_t size = 512) {
  std::string out(size, 'x');
  if (!flicker_map_data_path(path, &out[0], size))
    return "<false:" + std::string(out.c_str()) + ">";
  return out.c_str();
}

class HostDataPathTest : public ::testing::Test {
 protected:
  void SetUp() override {
    const char* home = getenv("HOME");
    savedHome_ = home != nullptr ? home : "";
    hadHome_ = home != nullptr;
    flicker_host::setDataRoot("/root-dir");
  }
  void TearDown() override {
    flicker_host::setDataRoot("");
    unsetenv("FLICKER_DATA_ROOT");
    if (hadHome_)
      setenv("HOME", savedHome_.c_str(), 1);
  }
  std::string savedHome_;
  bool hadHome_ = false;
};

TEST_F(HostDataPathTest, OnlyTheDeviceFolderIsMoved) {
  struct Row {
    const char* path;
    const char* expected;
  } rows[] = {
      {"/data/vendor/flicker/flko/001/flk.raw", "/root-dir/data/vendor/flicker/flko/001/flk.raw"},
      {"/data/vendor/flicker/", "/root-dir/data/vendor/flicker/"},  // the folder itself
      {"/data/vendor/flicker", "/root-dir/data/vendor/flicker"},    // without its slash
      {"/data/vendor/flickerX/a", "/data/vendor/flickerX/a"},       // a lookalike stays
      {"/data/vendor/other", "/data/vendor/other"},                 // another folder stays
      {"relative/data/vendor/flicker/a", "relative/data/vendor/flicker/a"},
      {"", ""},  // empty stays empty
  };
  for (const Row& row : rows) EXPECT_EQ(mapped(row.path), row.expected) << row.path;
}

TEST_F(HostDataPathTest, ResultsThatDoNotFitAreRefusedWhole) {
  const char path[] = "/data/vendor/flicker/para/a";  // maps to 36 characters
  const size_t length = std::string("/root-dir").size() + sizeof(path) - 1;
  EXPECT_EQ(mapped(path, length + 1), std::string("/root-dir") + path);  // exactly fits
  EXPECT_EQ(mapped(path, length), "<false:>");                           // one short
  EXPECT_EQ(mapped("/tmp/abc", 8), "<false:>");  // an unmapped path must fit too
  EXPECT_EQ(mapped(nullptr), "<false:>");
  char out[4] = "abc";
  EXPECT_FALSE(flicker_map_data_path(path, out, 0));  // no room at all: out untouched
  EXPECT_STREQ(out, "abc");
  EXPECT_FALSE(flicker_map_data_path(path, nullptr, 10));
}

TEST_F(HostDataPathTest, RootComesFromApiThenEnvironmentThenHome) {
  struct Row {
    const char* api;      // "" leaves the choice to the environment
    const char* envRoot;  // FLICKER_DATA_ROOT, null: unset
    const char* home;     // HOME, null: unset
    std::string expected;
  } rows[] = {
      {"/api", "/env", "/home/u", "/api"},           // the API wins
      {"", "/env", "/home/u", "/env"},               // then the environment
      {"", nullptr, "/home/u", "/home/u/.flicker"},  // then HOME
      {"", "", "/home/u", "/home/u/.flicker"},       // an empty variable counts as unset
      {"", nullptr, nullptr, "/tmp/flicker-" + std::to_string(getuid())},  // no HOME
  };
  for (const Row& row : rows) {
    flicker_host::setDataRoot(row.api);
    if (row.envRoot != nullptr) {
      setenv("FLICKER_DATA_ROOT", row.envRoot, 1);
    } else {
      unsetenv("FLICKER_DATA_ROOT");
    }
    if (row.home != nullptr) {
      setenv("HOME", row.home, 1);
    } else {
      unsetenv("HOME");
    }
    EXPECT_EQ(flicker_host::dataRoot(), row.expected);
    EXPECT_EQ(mapped("/data/vendor/flicker/x"), row.expected + "/data/vendor/flicker/x");
  }
}

}  // namespace
