// What a download is for: one of the files that lie beside the package, or the package itself.
#ifndef TARVOLIN_FETCH_JOB_H
#define TARVOLIN_FETCH_JOB_H

#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "fetch/course.h"
#include "fetch/network.h"
#include "fetch/prover.h"

namespace fetch {

class job : public receiver {
 public:
  job(std::string what, std::string url) : what_(std::move(what)), url_(std::move(url)) {}

  const std::string& what() const { return what_; }
  const std::string& url() const { return url_; }
  // What to ask for now.
  [[nodiscard]] virtual request next_request() const = 0;
  [[nodiscard]] virtual bool complete() const = 0;
  // What the end of an exchange means; makes ready for the next one.
  [[nodiscard]] judgement judge_end(const exchange_end& end);
  // A verdict that ends the exchange under way, if there is one.
  [[nodiscard]] bool has_verdict() const { return found_.what != verdict::usable; }
  // Bytes that count as progress, so far.
  [[nodiscard]] virtual uint64_t position() const = 0;
  [[nodiscard]] virtual std::optional<uint64_t> length() const = 0;

 protected:
  // An end that nobody has objected to, before all is there.
  virtual judgement judge_good_end() = 0;
  // What came and is not proven is of no use any more.
  virtual void forget() = 0;

  judgement found_;  // the last one on the exchange under way

 private:
  std::string what_, url_;
};

// A small file, held in memory, from the first byte each time.
class document final : public job {
 public:
  document(std::string what, std::string url, size_t limit)
      : job(std::move(what), std::move(url)), limit_(limit) {}
  const std::string& text() const { return text_; }

  request next_request() const override { return {}; }
  bool complete() const override { return complete_; }
  uint64_t position() const override { return text_.size(); }
  std::optional<uint64_t> length() const override { return std::nullopt; }
  bool take_header(const answer& given) override;
  bool take_body(std::string_view piece) override;
  bool has_room() const override { return true; }

 private:
  judgement judge_good_end() override;
  void forget() override { text_.clear(); }

  size_t limit_;
  std::string text_;
  bool complete_ = false;
};

// Takes proven bytes; returns how many.
using outlet = std::function<size_t(std::string_view)>;

// The package. What is proven goes to an outlet as soon as there is one.
class package_download final : public job {
 public:
  // `digests` has to outlive this; nullptr for a package that nobody has signed.
  package_download(std::string url, const digest_list* digests);

  void set_outlet(outlet to) { outlet_ = std::move(to); }
  // Hands on as many proven bytes as the outlet takes.
  void pump();
  // Whether proven bytes wait for the outlet.
  bool has_ready() const { return !prover_.ready().empty(); }

  request next_request() const override { return course_.next_request(); }
  bool complete() const override { return course_.complete(); }
  uint64_t position() const override { return course_.position(); }
  std::optional<uint64_t> length() const override { return course_.length(); }
  bool take_header(const answer& given) override;
  bool take_body(std::string_view piece) override;
  bool has_room() const override { return prover_.has_room(); }

 private:
  judgement judge_good_end() override { return course_.judge_early_end(); }
  void forget() override { prover_.forget(); }
  void note(prover::state now);

  course course_;
  prover prover_;
  outlet outlet_;
};

}  // namespace fetch

#endif
