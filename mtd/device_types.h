// What the calls on an MTD character device take and give.
#ifndef TARVOLIN_MTD_DEVICE_TYPES_H
#define TARVOLIN_MTD_DEVICE_TYPES_H

#include <cstdint>

enum class mtd_access { read_only, read_write };

// Geometry of a partition (MEMGETINFO), all in bytes.
struct mtd_geometry {
  uint32_t size;
  uint32_t erase_size;  // erase block
  uint32_t write_size;  // page
};

// Error counters of a partition since boot (ECCGETSTATS).
struct mtd_ecc_counters {
  uint32_t corrected;  // bit errors corrected by ECC
  uint32_t failed;     // uncorrectable pages read: the read itself still reports success
};

#endif
