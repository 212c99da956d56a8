#include "tools/tarv-store/block_reader.h"

#include "mtd/block_io.h"
#include "tools/common/interruption.h"
#include "tools/common/refusal.h"

namespace tools::tarv_store {

read_handle open_partition(const mtd_partition& partition) {
  read_handle ctx(mtd_read_open(partition));
  if (!ctx) throw system_refusal("cannot open partition " + in_quotes(partition.name));
  return ctx;
}

block_reader::block_reader(const mtd_partition& partition, const std::vector<bool>& bad, uint32_t first)
    : ctx_(open_partition(partition)), bad_(bad), next_(first), data_(partition.erase_size) {}

bool block_reader::next() {
  heed_interruptions();
  // Those marked bad are known: without a word on each of them.
  while (next_ < bad_.size() && bad_[next_]) ++next_;
  if (next_ >= bad_.size()) return false;
  const uint32_t erase_size = ctx_->partition->erase_size;
  const bool there = mtd_seek_to(ctx_->fd, static_cast<int64_t>(next_) * erase_size);
  const bool read = there && mtd_read_data(*ctx_, data_.data(), erase_size) == erase_size;
  if (!read) {
    if (!there || errno != ENOSPC) {
      throw system_refusal("cannot read partition " + in_quotes(ctx_->partition->name));
    }
    next_ = static_cast<uint32_t>(bad_.size());
    return false;
  }
  // The read may have passed over blocks to get these bytes.
  next_ = static_cast<uint32_t>(mtd_current_pos(ctx_->fd) / erase_size);
  return true;
}

}  // namespace tools::tarv_store
