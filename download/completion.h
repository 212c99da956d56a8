// The end of a download, the same for both clients: the store is closed and the outcome judged by the bytes
// saved.
#ifndef TARVOLIN_DOWNLOAD_COMPLETION_H
#define TARVOLIN_DOWNLOAD_COMPLETION_H

// Closes the store's write context and compares the bytes saved with the announced length, as the operation
// `op`. A download without an announced length is never whole. With `keep_reason`, a failure reason that
// already stands is not replaced where no length was announced. Returns 0 when the whole package was saved,
// else -1, logged, with a failure reason.
[[nodiscard]] int tarv_complete_download(const char* op, bool keep_reason);

#endif
