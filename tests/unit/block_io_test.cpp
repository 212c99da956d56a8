// Block transfers on a partition of six small blocks whose blocks and device calls fail in turn.
#include "mtd/block_io.h"

#include <cerrno>
#include <cstring>

#include "mtd/partitions.h"
#include "tests/unit/simulated_module.h"

namespace {

constexpr uint32_t kBlock = 4096;
constexpr uint32_t kHalf = kBlock / 2;
constexpr uint32_t kSize = 6 * kBlock;
constexpr uint32_t kLength = 5 * kHalf;  // of most transfers: two blocks and a half

class BlockIo : public SimulatedModule {
 protected:
  const mtd_partition& start_on(const std::string& bad, const std::string& faults, const std::string& bytes) {
    start("erase_size 4096\npage_size 512\npartition 0 p 24576\nbad p " + bad + "\n", faults);
    write(folder_ + "/mtd0.bin", bytes);
    EXPECT_EQ(mtd_load_partitions(), 1);
    return *mtd_find_partition("p");
  }

  static std::string filled(const char* halves) {
    std::string bytes;
    for (; *halves != '\0'; ++halves) bytes += std::string(kHalf, *halves);
    return bytes;
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

  const std::string payload_ = filled("AABBCCDDEEFF");
  const std::string stale_ = filled("############");
};

const struct {
  char way;  // write or read
  const char *bad, *faults;
  int error;           // errno, 0 for success
  const char* blocks;  // of a write, with the list of blocks passed over; of a read, what it delivers
  const char* printed;
} kTransfers[] = {
    {'w', "", "seek at 1 interrupted 9\nprogram at 2 interrupted 9\nread at 2 interrupted 9", 0,
     "AABBC0......", ""},
    {'w', "0", "", 0, "##AABBC0.... 0", "mtd: not writing bad block at 0x00000000 (ret 1): "},
    {'w', "1", "", 0, "AA##BBC0.... 1", "mtd: not writing bad block at 0x00001000 (ret 1): "},
    {'w', "5", "erase in p 3 fail", 0, "AABBC0##..##",
     "mtd: erase failure at 0x00003000\nmtd: not erasing bad block at 0x00005000\n"},
    {'w', "0 1 2 3", "", ENOSPC, "########AABB 0 1 2 3", "0x00003000"},
    {'w', "0 1 2 3 5", "", ENOSPC, "########AA## 0 1 2 3 5", "0x00005000"},
    {'w', "", "erase in p 0 fail", 0, "AABBC0......", "mtd: erase failure at 0x00000000 (Input/output"},
    {'w', "", "erase in p 1 fail always", 0, "AA##BBC0.... 1", "mtd: skipping write block at 0x00001000\n"},
    {'w', "", "program in p 0 fail", 0, "AABBC0......", "error)\nmtd: verification error at 0x00000000 ("},
    {'w', "", "program at 1 fail-late always", 0, "AABBC0......", "error)\nmtd: write error at 0x00001000 ("},
    {'w', "", "program in p 2 corrupt always", 0, "AABB..C0.... 2", "mtd: skipping write block at 0x00002"},
    {'w', "", "read in p 0 fail", 0, "AABBC0......", "mtd: re-read error at 0x00000000 (Input/output"},
    {'w', "", "badblock in p 0 fail", 0, "##AABBC0.... 0", "bad block at 0x00000000 (ret -1): Input/"},
    {'w', "", "badblock at 1 unsupported always", 0, "AABBC0......", ""},
    {'w', "", "seek at 1 fail", EIO, "############", "mtd: write_block: couldn't SEEK_CUR: Input/output"},
    {'w', "", "seek at 2 fail", 0, "AABBC0......", "mtd: write error at 0x00000000 (Input/output error)\n"},
    {'r', "", "seek at 1 interrupted 9\nread at 2 interrupted 9\nread at 1 corrected always", 0, "AABBC", ""},
    {'r', "0", "", 0, "BBCCD", "mtd: MEMGETBADBLOCK returned 1 at 0x00000000: "},
    {'r', "0 1 2 3", "", ENOSPC, "EEFF", "0x00003000"},
    {'r', "", "read in p 1 uncorrectable\nread in p 2 uncorrectable", 0, "AADDE",
     "mtd: ECC errors (0 soft, 1 hard) at 0x00001000\nmtd: ECC errors (0 soft, 1 hard) at 0x00002000\n"},
    {'r', "", "read in p 0 fail", 0, "BBCCD", "mtd: read error at 0x00000000 (Input/output error)\n"},
    {'r', "", "read in p 1 short", 0, "AACCD", "mtd: read error at 0x00001000 ("},
    {'r', "", "ecc at 1 fail", EIO, "", "mtd: ECCGETSTATS error (Input/output error)\n"},
    {'r', "", "ecc at 4 fail", EIO, "AA", "mtd: ECCGETSTATS error (Input/output error)\n"},
    {'r', "", "badblock in p 1 fail", 0, "AACCD", "mtd: MEMGETBADBLOCK returned -1 at 0x00001000: Input"},
    {'r', "", "badblock at 1 unsupported always", ENOSPC, "", "returned -1 at 0x00005000: Operation not"},
    {'r', "", "seek at 1 fail", EIO, "", "mtd: read_block: couldn't SEEK_CUR: Input/output error\n"},
};

TEST_F(BlockIo, Transfers) {
  for (const auto& c : kTransfers) {
    SCOPED_TRACE(std::string("bad ") + c.bad + ", " + c.faults + ", " + c.way);
    const bool reads = c.way == 'r';
    const mtd_partition& partition = start_on(c.bad, c.faults, reads ? payload_ : stale_);
    mtd_read_ctx* const in = mtd_read_open(partition);
    mtd_write_ctx* const out = mtd_write_open(partition);
    std::string delivered(kLength, '#');
    const auto transfer = [&] {
      if (reads) return mtd_read_data(*in, delivered.data(), kLength) == kLength;
      return mtd_write_data(*out, payload_.data(), kLength) == kLength && mtd_erase_blocks(*out, -1) == kSize;
    };
    check(transfer, c.error, c.printed);
    std::string blocks = picture(reads ? delivered : flash(0)).substr(0, reads ? strlen(c.blocks) : 12);
    for (int i = 0; i < out->bad_count; ++i) blocks += {' ', "012345"[out->bad_blocks.get()[i] / kBlock]};
    EXPECT_EQ(blocks, c.blocks);
    mtd_read_close(in);
    const int pending = out->stored == 0 ? 0 : -1;
    EXPECT_EQ(mtd_write_close(out), pending);
  }
}

TEST_F(BlockIo, Erases) {
  const struct {
    uint32_t position;
    int32_t count;
    int64_t end;  // returned
    const char *blocks, *printed;
  } cases[] = {
      {kBlock, 2, 3 * kBlock, "##....######", ""},
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
    int64_t end = 0;
    const auto erase = [&] { return (end = mtd_erase_blocks(*ctx, c.count)) != -1; };
    check(erase, c.end == -1 ? ENOSPC : 0, c.printed);
    EXPECT_EQ(end, c.end);
    EXPECT_EQ(picture(flash(0)), c.blocks);
    EXPECT_EQ(mtd_current_pos(ctx->fd), c.position);
    EXPECT_EQ(mtd_write_close(ctx), 0);
  }
}

TEST_F(BlockIo, SmallReadsComeFromTheBuffer) {
  const std::string content = noise(kSize);
  mtd_read_ctx* const in = mtd_read_open(start_on("", "", content));
  std::string piece(100, '\0');
  for (size_t at = 0; at < 9000; at += piece.size()) {
    ASSERT_EQ(mtd_read_data(*in, piece.data(), 100), 100);
    EXPECT_EQ(piece, content.substr(at, 100));
    EXPECT_EQ(sim_counts()[static_cast<size_t>(flash_op::read)], (at + 99) / kBlock + 1);
  }
  mtd_read_close(in);
}

}  // namespace
