// The partition table and what a context is when it was opened.
#include "mtd/partitions.h"

#include "tests/unit/simulated_module.h"

namespace {

class Partitions : public SimulatedModule {
 protected:
  int load(const std::string& partitions, const std::string& faults = "") {
    start(partitions, faults);
    return mtd_load_partitions();
  }
};

TEST_F(Partitions, AreFoundByTheirExactName) {
  const std::string name(63, 'n'), longer = "partition 63 " + name + "cut 131072\n";
  ASSERT_EQ(load("partition 5 p 262144\npartition 64 beyond 131072\npartition -1 before 131072\n" + longer),
            2);
  const mtd_partition* const found = mtd_find_partition("p");
  EXPECT_EQ(found->index, 5);
  EXPECT_EQ(found->size, 262144u);
  EXPECT_EQ(found->erase_size, 131072u);
  EXPECT_EQ(found->write_size, 2048u);
  for (const char* missing : {"P", "pp", "beyond", "before", ""})
    EXPECT_EQ(mtd_find_partition(missing), nullptr);
  EXPECT_EQ(mtd_find_partition(name.c_str())->index, 63);
  ASSERT_EQ(load("partition 5 other 131072\n"), 1);
  EXPECT_STREQ(found->name, "other");  // the table is refilled in place
  EXPECT_EQ(mtd_find_partition("p"), nullptr);
  EXPECT_EQ(mtd_find_partition(name.c_str()), nullptr);
}

// The list is read up to 2047 bytes, which here end within a name.
TEST_F(Partitions, NoNameIsCutByTheEndOfTheList) {
  std::string conf;
  for (int i = 0; i < 40; ++i) {
    conf +=
        "partition " + std::to_string(i) + " " + std::string(29, static_cast<char>('A' + i)) + " 131072\n";
  }
  const int count = load(conf);
  ASSERT_GT(count, 20);
  ASSERT_LT(count, 40);
  for (char letter = 'A'; letter < 'A' + 40; ++letter) {
    for (size_t length = 1; length < 29; ++length) {
      EXPECT_EQ(mtd_find_partition(std::string(length, letter).c_str()), nullptr) << letter << length;
    }
  }
}

TEST_F(Partitions, ContextsStartEmptyAndLeaveNothingOpen) {
  EXPECT_EQ(load(""), 0);
  EXPECT_EQ(load("partition 0 p 262144\n", "list at 1 fail"), -1);
  EXPECT_EQ(load("partition 0 p 262144\n", "geometry at 1 fail"), -1);
  ASSERT_EQ(load("partition 0 p 262144\n", "open at 4 fail\nclose at 3 fail\nlist at 2 fail"), 1);
  const mtd_partition& partition = *mtd_find_partition("p");
  mtd_read_ctx* const in = mtd_read_open(partition);
  mtd_write_ctx* const out = mtd_write_open(partition);
  EXPECT_EQ(mtd_read_open(partition), nullptr);
  EXPECT_EQ(mtd_write_open(mtd_partition{}), nullptr);
  EXPECT_EQ(in->consumed, 131072u);
  EXPECT_EQ(out->stored, 0u);
  EXPECT_EQ(out->bad_count, 0);
  EXPECT_EQ(mtd_load_partitions(), -1);
  EXPECT_EQ(in->partition->erase_size, 131072u);  // what is open goes on
  mtd_read_close(in);
  EXPECT_EQ(mtd_write_close(out), -1);
  EXPECT_EQ(sim_restart(folder_), 0u);
}

}  // namespace
