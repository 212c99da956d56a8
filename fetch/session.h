// A whole run: from the proof of the digests to the end of the updater.
#ifndef TARVOLIN_FETCH_SESSION_H
#define TARVOLIN_FETCH_SESSION_H

#include <csignal>
#include <memory>

#include "fetch/digests.h"
#include "fetch/feeder.h"
#include "fetch/job.h"
#include "fetch/network.h"
#include "fetch/news.h"
#include "fetch/options.h"
#include "fetch/patience.h"
#include "fetch/updater.h"

namespace fetch {

class session {
 public:
  // `given` has to outlive this.
  explicit session(const options& given) : given_(given), news_(given.json) {}
  session(const session&) = delete;
  session& operator=(const session&) = delete;
  ~session();

  // The run. Returns the exit status.
  [[nodiscard]] int run();

 private:
  // These return 0, or the exit status of a run that is over, told.
  int prepare();
  int wait_for_own_moment();
  int learn_digests();
  int bring_document(const std::string& place, const char* what, size_t limit, std::string& text);
  int prove_digests(const std::string& text, const std::string& signature_text);
  int fetch_package();
  int fetch(job& work);
  int make_progress(job& work, milliseconds now);
  int end_exchange(job& work, const exchange_end& end, milliseconds now);
  int start_updater();
  int deliver();

  // How a run ends whose updater is, or may be, at work: the exit status.
  int end_early(int status);
  int wait_for_updater();
  int updater_status() const;
  // True when the run cannot go on: a signal, or the updater has ended.
  bool is_cut_short() const { return signal_ != 0 || updater_.end() || feeder_.lost(); }
  int cut_short();
  // Sleeps until something happens, at most until `until`; then serves updater and signals.
  void wait_until(milliseconds until);
  void take_signals();
  int refuse(const std::string& why);

  const options& given_;
  news news_;
  network network_;
  std::vector<public_key> keys_;
  digest_list digests_;
  std::unique_ptr<patience> patience_;
  std::unique_ptr<package_download> package_;
  feeder feeder_;
  updater updater_;
  milliseconds next_try_ = 0, asked_since_ = 0;
  uint64_t last_position_ = 0;
  int signals_ = -1;  // descriptor
  sigset_t old_mask_ = {};
  int signal_ = 0;  // that asked for an end
};

}  // namespace fetch

#endif
