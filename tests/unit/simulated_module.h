// Base of the unit tests that need a module: simulated flash in a folder of its own and records as at process
// start. The tests write to /tmp/tarvolin, so they run inside sim/module only.
#ifndef TARVOLIN_TESTS_UNIT_SIMULATED_MODULE_H
#define TARVOLIN_TESTS_UNIT_SIMULATED_MODULE_H

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "main/run/record.h"
#include "main/run/result_files.h"
#include "sim/device_sim.h"

class SimulatedModule : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(getenv("TARVOLIN_SIM") != nullptr) << "run this test through sim/module";
    folder_ = std::string(getenv("TARVOLIN_SIM")) + "/unit";
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
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  }

  // All bytes of partition `index`; empty before it was first opened.
  std::string flash(int index) const { return read(folder_ + "/mtd" + std::to_string(index) + ".bin"); }
  static std::string run_file(const std::string& name) {
    return read(std::string(TARV_RUN_DIR) + "/" + name);
  }

  std::string folder_;
};

#endif
