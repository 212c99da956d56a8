// Partitions, and transfers on a partition of six small blocks, where blocks and device calls fail in turn.
#include "mtd/block_io.h"

#include <cerrno>
#include <cstring>

#include "mtd/partitions.h"
#include "tests/unit/simulated_module.h"

namespace {

using namespace std::string_literals;

constexpr uint32_t kBlock = 4096;
constexpr uint32_t kHalf = kBlock / 2;
constexpr uint32_t kSize = 6 * kBlock;
constexpr uint32_t kLength = 5 * kHalf;  // of most transfers: two blocks and a half

class Mtd : public SimulatedModule {
 protected:
  int load(const std::string& partitions, const std::string& faults = "") {
    start(partitions, faults);
    return mtd_load_partitions();
  }

  const mtd_partition& start_on(const std::string& bad, const std::string& faults, const std::string& bytes) {
    start("erase_size 4096\npage_size 512\npartition 0 p 24576\nbad p " + bad + "\n", faults);
    write(flash_file(0), bytes);
    EXPECT_EQ(mtd_load_partitions(), 1);
    return *mtd_find_partition("p");
  }

  // One character for each half of a block: what it is filled with, '.' for erased, '?' for a mixture.
  static std::string picture(const std::string& bytes) {
    std::string out;
    for (size_t at = 0; at < bytes.size(); at += kHalf) {
      const bool mixed = bytes.find_first_not_of(bytes[at], at) < at + kHalf;
      out += mixed ? '?' : bytes[at] == '\xff' ? '.' : bytes[at] == '\0' ? '0' : bytes[at];
    }
    return out;
  }

  // Runs `work`, which tells whether it succeeded. `printed` is a part of what it prints; empty: nothing.
  template <typename Work>
  static void check(Work work, int error, const std::string& printed) {
    int found = 0;
    const std::string console = console_of([&] { found = work() ? 0 : errno; });
    EXPECT_EQ(found, error);
    EXPECT_TRUE(printed.empty() ? console.empty() : console.find(printed) != std::string::npos) << console;
  }

  static std::string letters() {
    std::string blocks;
    for (const char letter : "ABCDEF"s) blocks += std::string(kBlock, letter);
    return blocks.substr(0, kSize);
  }

  const std::string stale_ = std::string(kSize, '#');
  const std::string payload_ = letters();  // a letter for each block
};

// One of two blocks and a half, on blocks that fail in turn.
struct transfer {
  const char *bad, *faults;
  int error;            // errno, 0 for success
  const char* blocks;   // written: what is on flash, and the blocks passed over; read: what was delivered
  const char* printed;  // a part of it; empty: nothing
};

const transfer kWrites[] = {
    {"", "seek at 1 interrupted 9\nprogram at 2 interrupted 9\nread at 2 interrupted 9", 0, "AABBC0......",
     ""},
    {"0", "", 0, "##AABBC0.... 0", "mtd: not writing bad block at 0x00000000 (ret 1): "},
    {"1", "", 0, "AA##BBC0.... 1", "mtd: not writing bad block at 0x00001000 (ret 1): "},
    {"5", "erase in p 3 fail", 0, "AABBC0##..##",
     "mtd: erase failure at 0x00003000\nmtd: not erasing bad block at 0x00005000\n"},
    {"0 1 2 3", "", ENOSPC, "########AABB 0 1 2 3", "0x00003000"},
    {"0 1 2 3 5", "", ENOSPC, "########AA## 0 1 2 3 5", "0x00005000"},
    {"", "erase in p 0 fail", 0, "AABBC0......", "mtd: erase failure at 0x00000000 (Input/output"},
    {"", "erase in p 1 fail always", 0, "AA##BBC0.... 1", "mtd: skipping write block at 0x00001000\n"},
    {"", "program in p 0 fail", 0, "AABBC0......", "error)\nmtd: verification error at 0x00000000 ("},
    {"", "program at 1 fail-late always", 0, "AABBC0......", "error)\nmtd: write error at 0x00001000 ("},
    {"", "program in p 2 corrupt always", 0, "AABB..C0.... 2", "mtd: skipping write block at 0x00002"},
    {"", "read in p 0 fail", 0, "AABBC0......", "mtd: re-read error at 0x00000000 (Input/output"},
    {"", "badblock in p 0 fail", 0, "##AABBC0.... 0", "bad block at 0x00000000 (ret -1): Input/"},
    {"", "badblock at 1 unsupported always", 0, "AABBC0......", ""},
    {"", "seek at 1 fail", EIO, "############", "mtd: write_block: couldn't SEEK_CUR: Input/output"},
    {"", "seek at 2 fail", 0, "AABBC0......", "mtd: write error at 0x00000000 (Input/output error)\n"},
};

const transfer kReads[] = {
    {"", "seek at 1 interrupted 9\nread at 2 interrupted 9\nread at 1 corrected always", 0, "AABBC", ""},
    {"0", "", 0, "BBCCD", "mtd: MEMGETBADBLOCK returned 1 at 0x00000000: "},
    {"0 1 2 3", "", ENOSPC, "EEFF", "0x00003000"},
    {"", "read in p 1 uncorrectable\nread in p 2 uncorrectable", 0, "AADDE",
     "mtd: ECC errors (0 soft, 1 hard) at 0x00001000\nmtd: ECC errors (0 soft, 1 hard) at 0x00002000\n"},
    {"", "read in p 0 fail", 0, "BBCCD", "mtd: read error at 0x00000000 (Input/output error)\n"},
    {"", "read in p 1 short", 0, "AACCD", "mtd: read error at 0x00001000 ("},
    {"", "ecc at 1 fail", EIO, "", "mtd: ECCGETSTATS error (Input/output error)\n"},
    {"", "ecc at 4 fail", EIO, "AA", "mtd: ECCGETSTATS error (Input/output error)\n"},
    {"", "badblock in p 1 fail", 0, "AACCD", "mtd: MEMGETBADBLOCK returned -1 at 0x00001000: Input"},
    {"", "badblock at 1 unsupported always", ENOSPC, "", "returned -1 at 0x00005000: Operation not"},
    {"", "seek at 1 fail", EIO, "", "mtd: read_block: couldn't SEEK_CUR: Input/output error\n"},
};

TEST_F(Mtd, Writes) {
  for (const transfer& c : kWrites) {
    SCOPED_TRACE(std::string("bad ") + c.bad + ", " + c.faults);
    mtd_write_ctx* const ctx = mtd_write_open(start_on(c.bad, c.faults, stale_));
    const auto write = [&] {
      return mtd_write_data(*ctx, payload_.data(), kLength) == kLength && mtd_erase_blocks(*ctx, -1) == kSize;
    };
    check(write, c.error, c.printed);
    std::string blocks = picture(flash(0));
    for (int i = 0; i < ctx->bad_count; ++i) blocks += {' ', "012345"[ctx->bad_blocks.get()[i] / kBlock]};
    EXPECT_EQ(blocks, c.blocks);
    const int unwritten = ctx->stored == 0 ? 0 : -1;  // tried once more by the close
    EXPECT_EQ(mtd_write_close(ctx), unwritten);
  }
}

TEST_F(Mtd, Reads) {
  for (const transfer& c : kReads) {
    SCOPED_TRACE(std::string("bad ") + c.bad + ", " + c.faults);
    mtd_read_ctx* const ctx = mtd_read_open(start_on(c.bad, c.faults, payload_));
    std::string delivered(kLength, '#');
    check([&] { return mtd_read_data(*ctx, delivered.data(), kLength) == kLength; }, c.error, c.printed);
    EXPECT_EQ(picture(delivered).substr(0, strlen(c.blocks)), c.blocks);
    mtd_read_close(ctx);
  }
}

TEST_F(Mtd, Erases) {
  const struct {
    uint32_t position;
    int32_t count;
    int64_t end;  // returned
    const char *blocks, *printed;
  } cases[] = {
      {kBlock, 2, int64_t{3} * kBlock, "##....######", ""},
      {kBlock, 5, kSize, "##..........", ""},
      {kBlock, 6, -1, "############", ""},
      {100, -1, kSize, "##..........", "pos is not 0\n"},
      {100, 6, -1, "############", "pos is not 0\n"},
      {kSize - 1, -1, kSize, "############", "pos is not 0\n"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::to_string(c.count) + " from " + std::to_string(c.position));
    mtd_write_ctx* const ctx = mtd_write_open(start_on("", "", stale_));
    ASSERT_TRUE(mtd_seek_to(ctx->fd, c.position));
    check([&] { return mtd_erase_blocks(*ctx, c.count) == c.end && c.end != -1; }, c.end == -1 ? ENOSPC : 0,
          c.printed);
    EXPECT_EQ(picture(flash(0)), c.blocks);
    EXPECT_EQ(mtd_current_pos(ctx->fd), c.position);
    EXPECT_EQ(mtd_write_close(ctx), 0);
  }
}

TEST_F(Mtd, PartitionsAreFoundByTheirExactName) {
  const std::string name(63, 'n'), longer = "partition 63 " + name + "cut 131072\n";
  ASSERT_EQ(load("partition 5 p 262144\npartition 64 high 131072\npartition -1 low 131072\n" + longer), 2);
  const mtd_partition* const found = mtd_find_partition("p");
  EXPECT_EQ(found->index, 5);
  EXPECT_EQ(found->size / found->erase_size, 2u);
  EXPECT_EQ(found->write_size, 2048u);
  for (const char* other : {"P", "pp", "high", "low", ""}) EXPECT_EQ(mtd_find_partition(other), nullptr);
  EXPECT_EQ(mtd_find_partition(name.c_str())->index, 63);
  ASSERT_EQ(load("partition 5 other 131072\n"), 1);
  EXPECT_STREQ(found->name, "other");  // the table is refilled in place
  for (const char* old : {"p", name.c_str()}) EXPECT_EQ(mtd_find_partition(old), nullptr);
}

// The list is read up to 2047 bytes, which here end within a name.
TEST_F(Mtd, NoNameIsCutByTheEndOfTheList) {
  std::string conf;
  for (char c = 'A'; c < 'A' + 40; ++c) {
    conf += "partition " + std::to_string(c - 'A') + " " + std::string(29, c) + " 131072\n";
  }
  ASSERT_LT(load(conf), 40);
  for (char letter = 'A'; letter < 'A' + 40; ++letter) {
    for (size_t length = 1; length < 29; ++length) {
      EXPECT_EQ(mtd_find_partition(std::string(length, letter).c_str()), nullptr) << letter << length;
    }
  }
}

TEST_F(Mtd, ContextsStartEmptyAndLeaveNothingOpen) {
  EXPECT_EQ(load(""), 0);
  for (const char* fault : {"list at 1 fail", "geometry at 1 fail"})
    EXPECT_EQ(load("partition 0 p 262144\n", fault), -1);
  ASSERT_EQ(load("partition 0 p 262144\n", "open at 4 fail\nclose at 3 fail\nlist at 2 fail"), 1);
  const mtd_partition& partition = *mtd_find_partition("p");
  mtd_read_ctx* const in = mtd_read_open(partition);
  mtd_write_ctx* const out = mtd_write_open(partition);
  EXPECT_EQ(mtd_read_open(partition), nullptr);
  EXPECT_EQ(mtd_write_open(mtd_partition{}), nullptr);
  EXPECT_EQ(in->consumed, 131072u);
  EXPECT_EQ(mtd_load_partitions(), -1);
  EXPECT_EQ(in->partition->erase_size, 131072u);  // what is open goes on
  mtd_read_close(in);
  EXPECT_EQ(mtd_write_close(out), -1);
  EXPECT_EQ(sim_restart(folder_), 0u);
}

}  // namespace
