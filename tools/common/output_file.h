// A file that comes into being whole or not at all.
#ifndef TARVOLIN_TOOLS_COMMON_OUTPUT_FILE_H
#define TARVOLIN_TOOLS_COMMON_OUTPUT_FILE_H

#include <cstddef>
#include <string>

// Refuses an empty path and one of something that is no regular file: a slip of the pen must not replace a
// device or a link.
void check_output_path(const std::string& path);

// Collects its bytes in a temporary file of the same folder, which takes the wanted name on commit(). Without
// a commit the temporary file disappears and whatever had the name before stays untouched. Members throw a
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

#endif
