// The place for a tool's results: a file that appears whole or not at all, or a stream.
#ifndef TARVOLIN_TOOLS_COMMON_OUTPUT_FILE_H
#define TARVOLIN_TOOLS_COMMON_OUTPUT_FILE_H

#include <cstddef>
#include <cstdio>
#include <string>
#include <string_view>

namespace tools {

// The name of standard output, where a tool can write to it in a file's place.
constexpr std::string_view kStandardOutput = "-";

// Refuses an empty path, the name of standard output, one of something that is no regular file and one of a
// file that is read-only: a slip of the pen must not replace a device, a link, or what somebody protects.
void check_output_path(const std::string& path);

// Refuses a stream that leads to a terminal: the bytes of an image would garble it.
void check_output_stream(FILE* out);

// Appends `length` bytes to a stream for results; throws a refusal when it does not take them.
void write_stream(FILE* out, const void* data, size_t length);

// Collects its bytes in a temporary file of the same folder, which takes the wanted name on commit(). Without
// a commit the temporary file disappears, and an older file of that name stays as it was. Members throw a
// refusal when they cannot do what they promise.
class output_file {
 public:
  explicit output_file(const std::string& path);
  output_file(const output_file&) = delete;
  output_file& operator=(const output_file&) = delete;
  ~output_file();

  // Appends `length` bytes.
  void write(const void* data, size_t length);
  // Writes over bytes that were written before, from the file's start on.
  void rewrite_start(const void* data, size_t length);
  // Puts the bytes on disk and gives the file its name. Nothing may be written afterwards.
  void commit();

 private:
  std::string path_;
  std::string temporary_;  // empty once the file has its name
  int fd_;                 // -1 once closed
};

}  // namespace tools

#endif
