#include "restore/restore.h"

#include <algorithm>
#include <cstdio>

#include "package/crc32.h"
#include "restore/disarming.h"
#include "restore/fault.h"
#include "restore/progress.h"
#include "restore/target.h"

namespace restore {

namespace {

struct job {
  store from;
  workspace memory;
  // Of each image; null for one that a later image of the same name supersedes.
  std::array<const mtd_partition*, kStoreImagesMax> targets = {};
};

int find_targets(job& work, uint32_t& largest) {
  const store_head_record& record = work.from.record;
  for (uint32_t i = 0; i < record.image_num; ++i) {
    if (is_superseded(record, i)) continue;
    if (find_target(record.images[i], work.targets[i]) != 0) return -1;
    largest = std::max(largest, work.targets[i]->erase_size);
  }
  return 0;
}

// All that can be known before the first byte of a target is touched.
int judge_all(job& work) {
  uint32_t largest = largest_block(work.from);
  if (judge_store(work.from) != 0 || find_targets(work, largest) != 0) return -1;
  work.memory.store_block = allocate(largest_block(work.from));
  work.memory.target_block = allocate(largest);
  if (!work.memory.store_block || !work.memory.target_block) {
    return fault("there is no memory for two erase blocks of %u bytes", largest);
  }
  return prove_store(work.from, work.memory.store_block.get());
}

// Tells whether the target needs no writing, since an earlier restore has finished it. One with gaps has to
// be written again: lost power leaves a block that was being erased unreadable, with old data in it.
verdict compare_image(job& work, uint32_t i) {
  const mtd_partition& target = *work.targets[i];
  bool alike = false;
  if (compare_start(target, work.from, i, work.memory, alike) != 0) return verdict::unknown;
  if (!alike) return verdict::differs;
  char why[kFaultCapacity] = "";
  return judge_target(target, work.from.record.images[i], work.memory, why);
}

// Reads the target back, under the step's name. Returns 0 when it holds its image, or -1 with a fault.
int prove_image(job& work, uint32_t i, const char* step) {
  const mtd_partition& target = *work.targets[i];
  char why[kFaultCapacity] = "";
  begin_step(step, target.name, target.size);
  const verdict found = judge_target(target, work.from.record.images[i], work.memory, why);
  if (found != verdict::holds && found != verdict::gapped) return fault("%s", why);
  end_step(nullptr);
  return 0;
}

int restore_image(job& work, uint32_t i) {
  begin_step("compare", work.targets[i]->name, work.targets[i]->size);
  const verdict found = compare_image(work, i);
  if (found == verdict::unknown) return -1;
  end_step(found == verdict::holds ? "holds its image already" : "to be written");
  if (found == verdict::holds) return 0;
  if (write_target(*work.targets[i], work.from, i, work.memory) != 0) return -1;
  return prove_image(work, i, "verify");
}

int restore_images(job& work) {
  for (uint32_t i = 0; i < work.from.record.image_num; ++i) {
    if (work.targets[i] != nullptr && restore_image(work, i) != 0) return -1;
  }
  return 0;
}

// Reads every target once more: the record must stand until all of them are proven together.
int confirm_images(job& work) {
  for (uint32_t i = 0; i < work.from.record.image_num; ++i) {
    if (work.targets[i] != nullptr && prove_image(work, i, "confirm") != 0) return -1;
  }
  return 0;
}

int end_with(int exit_status, const char* message) {
  show_outcome(message, exit_status);
  return exit_status;
}

int end_with_fault(int exit_status) {
  return end_with(exit_status, fault_text());
}

int restore_armed(job& work, const options& wanted) {
  if (judge_all(work) != 0) return end_with_fault(kRefused);
  if (wanted.only_check) return end_with(kRestored, "the store is armed and proven, every target has room");
  if (restore_images(work) != 0 || confirm_images(work) != 0) return end_with_fault(kFailed);
  if (wanted.keep_armed) return end_with(kRestored, "restored; the store is still armed");
  if (disarm(work.from) != 0) return end_with_fault(kFailed);
  return end_with(kRestored, "restored; the store is no longer armed");
}

}  // namespace

int run_restore(const options& wanted) {
  crc32_init_table();
  if (mtd_load_partitions() < 0) {
    system_fault("cannot read the list of partitions, /proc/mtd, or ask one of them");
    return end_with_fault(kRefused);
  }
  job work;
  const char* remark = "";
  const record_form form = find_store(work.from, remark);
  if (form == record_form::armed) return restore_armed(work, wanted);
  if (form == record_form::unknown) return end_with_fault(kRefused);
  char text[kFaultCapacity];
  snprintf(text, sizeof text, "nothing to restore: in the record's place \"%s\" has %s", store_list[0],
           remark);
  return end_with(kNothing, text);
}

}  // namespace restore
