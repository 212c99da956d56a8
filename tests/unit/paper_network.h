// A network of paper for downloads: any answers, breaks anywhere, hours in no time.
#ifndef TARVOLIN_TESTS_UNIT_PAPER_NETWORK_H
#define TARVOLIN_TESTS_UNIT_PAPER_NETWORK_H

#include <algorithm>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "fetch/hold.h"
#include "fetch/job.h"
#include "fetch/patience.h"

namespace fetch {

constexpr uint32_t kChunk = kMinChunk;

inline std::string noise(size_t size) {
  std::mt19937 random(7);
  std::string bytes(size, '\0');
  for (char& byte : bytes) byte = static_cast<char>(random());
  return bytes;
}

// What a server sends: header lines, then a body that may break off.
struct reply {
  std::vector<std::string> header;
  std::string body;
  bool whole = true;
};

inline std::string tail(const std::string& file, uint64_t first) {
  return file.substr(static_cast<size_t>(first));
}

inline reply ranged(const std::string& file, uint64_t first, uint64_t last,
                    const std::string& etag = "\"1\"") {
  return {{"HTTP/2 206",
           "content-range: bytes " + std::to_string(first) + "-" + std::to_string(last) + "/" +
               std::to_string(file.size()),
           "ETag: " + etag},
          file.substr(static_cast<size_t>(first), static_cast<size_t>(last - first + 1))};
}

inline reply honest(const std::string& file, const request& wanted, const std::string& etag = "\"1\"") {
  if (wanted.from) return ranged(file, *wanted.from, wanted.one_byte ? *wanted.from : file.size() - 1, etag);
  return {{"HTTP/1.1 200 OK", "CONTENT-LENGTH: " + std::to_string(file.size()), "ETag: " + etag}, file};
}

// A download with an updater that reads whatever comes, in fake time.
struct paper_network {
  explicit paper_network(const std::string& file, bool is_signed = true, uint32_t chunk = kChunk) {
    list = {file.size(), chunk, {}};
    for (size_t at = 0; at < file.size(); at += chunk)
      list.sha256.push_back(sha256_of(&file[at], std::min<size_t>(chunk, file.size() - at)));
    work = std::make_unique<package_download>("http://h/p", is_signed ? &list : nullptr);
    work->set_outlet([this](std::string_view bytes) {
      const size_t taken = held.push(bytes);
      held.want_room(bytes.size() - taken);
      return taken;
    });
  }

  // The updater reads what it may have. It must never wait too long.
  void feed() {
    while (!held.sendable(now).empty()) {
      const std::string_view bytes = held.sendable(now);
      if (work->position() > kHoldSize && now - last_fed > longest_silence) longest_silence = now - last_fed;
      out += bytes;
      held.sent(bytes.size(), now);
      last_fed = now;
      work->pump();
    }
  }

  judgement exchange(const reply& sent) {
    answer given;
    for (const std::string& line : sent.header) take_header_line(given, line);
    if (!work->take_header(given)) return work->judge_end({});
    received += sent.body.size();
    for (size_t at = 0; at < sent.body.size() && !work->complete(); at += 4000) {
      if (!work->take_body(std::string_view(sent.body).substr(at, 4000))) break;
      feed();
    }
    return work->judge_end({sent.whole ? CURLE_OK : CURLE_PARTIAL_FILE, "cut"});
  }

  // Asks `server` until it is over. Returns what the last answer meant.
  judgement run(const std::function<reply(const request&)>& server) {
    patience patient(now, give_up);
    while (now < patient.deadline()) {
      const uint64_t before = work->position();
      ++requests;
      judgement found = exchange(server(work->next_request()));
      if (work->complete()) held.finish();
      feed();
      if (work->complete()) return {};
      if (found.what == verdict::refused) return found;
      if (work->position() > before) {
        patient.recovered();
        patient.progressed(now);
      }
      const milliseconds until =
          now +
          (found.what == verdict::at_once ? 0 : patient.wait_after_break(static_cast<uint32_t>(requests), 0));
      for (; now < until; now += 100) feed();
    }
    return {verdict::broken, "gave up"};
  }

  digest_list list;
  std::unique_ptr<package_download> work;
  hold held;
  std::string out;
  milliseconds now = 1'000'000, last_fed = now, longest_silence = 0, give_up = 3'600'000;
  uint64_t received = 0;
  int requests = 0;
};

inline reply cut(reply whole, size_t length) {
  if (length < whole.body.size()) {
    whole.body.resize(length);
    whole.whole = false;
  }
  return whole;
}

}  // namespace fetch

#endif
