// Base of the unit tests that need a module: simulated flash in a folder of its own and records as at process
// start. The tests write to /tmp/tarvolin, so they run inside lab/namespace only.
#ifndef TARVOLIN_TESTS_UNIT_SIMULATED_MODULE_H
#define TARVOLIN_TESTS_UNIT_SIMULATED_MODULE_H

#include <gtest/gtest.h>
#include <sys/mount.h>

#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <string>

#include "main/run/record.h"
#include "main/run/result_files.h"
#include "sim/device_sim.h"

class SimulatedModule : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(std::filesystem::exists("/host")) << "run this test through lab/namespace";
    // In memory, since small files are rewritten there by the ten thousand. Seen by this process alone.
    static const int mounted = mount("tmpfs", "/tmp", "tmpfs", 0, nullptr);
    ASSERT_EQ(mounted, 0);
    tarv_init_info();
  }

  // Starts over on fresh flash. `conf` is a module.conf, `faults` a fault plan; the run directory is empty.
  void start(const std::string& conf, const std::string& faults = "") {
    std::filesystem::remove_all(folder_);
    std::filesystem::remove_all(TARV_RUN_DIR);
    std::filesystem::create_directories(folder_);
    std::filesystem::create_directories(TARV_RUN_DIR);
    write(folder_ + "/module.conf", conf);
    write(folder_ + "/faults", faults);
    sim_restart(folder_);
    tarv_init_info();
  }

  static void write(const std::string& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
  }

  static std::string read(const std::string& path) {
    std::ostringstream bytes;
    bytes << std::ifstream(path, std::ios::binary).rdbuf();
    return bytes.str();
  }

  // Bytes that no erased, zeroed or shifted flash could be taken for.
  static std::string noise(size_t size, uint32_t seed = 1) {
    std::mt19937 random(seed);
    std::string bytes;
    while (bytes.size() < size) bytes += std::to_string(random());
    bytes.resize(size);
    return bytes;
  }

  // What `work` prints on the console: standard output, then standard error.
  template <typename Work>
  static std::string console_of(Work work) {
    ::testing::internal::CaptureStdout();
    ::testing::internal::CaptureStderr();
    work();
    const std::string output = ::testing::internal::GetCapturedStdout();
    return output + ::testing::internal::GetCapturedStderr();
  }

  // All bytes of partition `index` are in the file; it is missing before it was first opened.
  std::string flash_file(int index) const { return folder_ + "/mtd" + std::to_string(index) + ".bin"; }
  std::string flash(int index) const { return read(flash_file(index)); }
  static std::string run_file(const std::string& name) {
    return read(std::string(TARV_RUN_DIR) + "/" + name);
  }

  const std::string folder_ = "/tmp/flash";
};

#endif
