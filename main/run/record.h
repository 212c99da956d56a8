// What one run of the updater is: two process-wide records, reached through two pointers.
//
// `ginfo` holds options, progress and everything the stages hand to each other; `ghead` is the store head
// record as it will stand on flash. Both live as long as the process. One thread uses them.
#ifndef TARVOLIN_MAIN_RUN_RECORD_H
#define TARVOLIN_MAIN_RUN_RECORD_H

#include <cstdint>

#include "main/run/run_directory.h"
#include "package/format.h"
#include "store/head_record.h"

struct mtd_read_ctx;
struct mtd_write_ctx;

constexpr int32_t kHttpHeadCapacity = 4096;  // bytes of response header, with the body bytes that came along

// State of the response intake.
enum tarv_download_state : int32_t {
  TARV_DOWNLOAD_IDLE = 0,         // the response header is incomplete
  TARV_DOWNLOAD_DOWNLOADING = 1,  // the body is incomplete
  TARV_DOWNLOAD_FINISH = 2,       // all announced bytes were taken; more are ignored
  TARV_DOWNLOAD_ERROR = 3,        // refused; more bytes are ignored
};

struct run_record {
  // Options and run state.
  int32_t type;           // --type, logged only
  char url[256];          // --url; empty when not given
  char revid[64];         // the module's version text; empty until known
  int32_t status;         // a tarv_status
  int32_t resume_offset;  // first package byte that the request asked for
  uint32_t start_time;    // seconds since the epoch
  uint32_t stage_time;    // seconds since the epoch, when the current stage began

  // Response intake.
  int32_t download_status;                    // a tarv_download_state
  char http_head_buf[kHttpHeadCapacity + 1];  // gathered until the header is complete, NUL-terminated
  int32_t http_head_buf_len;                  // bytes gathered
  uint32_t file_len;                          // announced package length; 0 until known
  uint32_t fileoffset;                        // body bytes accepted
  const char* content_pos;                    // body bytes inside http_head_buf, or null
  int32_t curl_progress;                      // bytes since the last progress line, libcurl client
  int32_t socket_progress;                    // the same, socket client

  // Package intake.
  int32_t head_bytes;              // bytes of `head` gathered
  package_head head;               // as received
  int32_t head_done;               // 1 once `head` is complete
  int32_t cur_image;               // image that the next bytes belong to
  const package_entry* cur_entry;  // its table entry, inside `head`
  int32_t cur_pt_type;             // its partition group
  uint32_t image_saved[kMaxImages];
  int32_t wfd;               // open file of the current file-group image, or -1
  mtd_write_ctx* write_ctx;  // open store or recovery partition, or null
  mtd_read_ctx* read_ctx;    // store partition being read back, or null
  uint32_t saved_total;      // package bytes saved, head included, padding not
  int32_t download_size_fd;  // file that saved_total is published in, or -1

  // Store.
  uint32_t store_capacity[kStorePartitions];  // usable bytes of each store partition
  int32_t store_partitions;                   // partitions from the front of the list that the stream may use
  int64_t store_data_start;  // byte of "userdata" where this run's data begin, behind the head block
  uint32_t vexonv_saved;     // stored bytes in the fourth store partition, which has no slot in ghead
};

extern run_record* const ginfo;
extern store_head_record* const ghead;

// Puts both records into their state at process start: zeros, no open descriptor, no open context.
void tarv_init_info();

#endif
