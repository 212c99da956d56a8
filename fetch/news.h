// What tarv-fetch says: a line on standard error for people, or an object on standard output for programs.
#ifndef TARVOLIN_FETCH_NEWS_H
#define TARVOLIN_FETCH_NEWS_H

#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>

namespace fetch {

// A number for programs, beside the sentence.
struct figure {
  const char* name;
  uint64_t value;
};

class news {
 public:
  explicit news(bool as_json) : as_json_(as_json) {}
  // `event` names the kind of news in a word; `text` is a sentence, which may quote foreign text.
  void tell(const char* event, const std::string& text, std::initializer_list<figure> figures = {}) const;

 private:
  bool as_json_;
};

// `text` with all but printable ASCII as \xNN, and a backslash as two.
[[nodiscard]] std::string printable(std::string_view text);

}  // namespace fetch

#endif
