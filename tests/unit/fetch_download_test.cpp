// A package's download on a network of paper: any answers, breaks anywhere, hours in no time.
#include <gtest/gtest.h>

#include <functional>
#include <random>

#include "fetch/feeder.h"
#include "fetch/hold.h"
#include "fetch/job.h"
#include "fetch/options.h"
#include "fetch/patience.h"

namespace fetch {
namespace {

using namespace std::string_literals;

constexpr uint32_t kChunk = kMinChunk;
constexpr milliseconds kUpdaterPatience = 30'000;

std::string noise(size_t size) {
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

std::string tail(const std::string& file, uint64_t first) {
  return file.substr(static_cast<size_t>(first));
}

reply ranged(const std::string& file, uint64_t first, uint64_t last, const std::string& etag = "\"1\"") {
  return {{"HTTP/2 206",
           "content-range: bytes " + std::to_string(first) + "-" + std::to_string(last) + "/" +
               std::to_string(file.size()),
           "ETag: " + etag},
          file.substr(static_cast<size_t>(first), static_cast<size_t>(last - first + 1))};
}

reply honest(const std::string& file, const request& wanted, const std::string& etag = "\"1\"") {
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
      const judgement found = exchange(server(work->next_request()));
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

reply cut(reply whole, size_t length) {
  if (length < whole.body.size()) {
    whole.body.resize(length);
    whole.whole = false;
  }
  return whole;
}

// One break at `place` of the first answer, signed and unsigned.
void check_break(const std::string& file, uint64_t place) {
  for (const bool is_signed : {true, false}) {
    paper_network net(file, is_signed);
    const auto server = [&](const request& wanted) {
      const reply whole = honest(file, wanted);
      return net.requests == 1 ? cut(whole, static_cast<size_t>(place)) : whole;
    };
    EXPECT_EQ(net.run(server).what, verdict::usable);
    EXPECT_TRUE(net.out == file) << place;
    EXPECT_LE(net.received, file.size() + (is_signed ? kChunk : 0)) << place;
    EXPECT_EQ(net.requests, place < file.size() ? 2 : 1) << place;
  }
}

TEST(FetchDownload, SurvivesABreakAnywhere) {
  const std::string file = noise(4 * kChunk + 123), small = file.substr(0, 9000);
  for (uint64_t place = 0; place < 8192; ++place) check_break(small, place);
  for (uint64_t edge = kChunk; edge <= file.size() + kChunk; edge += kChunk) {
    for (const uint64_t place : {edge - 1, edge, edge + 1}) check_break(file, place);
  }
  std::mt19937 random(1);
  for (int i = 0; i < 1000; ++i) check_break(file, random() % file.size());
}

TEST(FetchDownload, AnswersAreUsedOrRefused) {
  const std::string file = noise(3 * kChunk + 5), other = noise(3 * kChunk + 6);
  const uint64_t size = file.size(), half = kChunk + 100;
  const std::string chunked = "HTTP/1.1 200 OK";
  enum end { right, refused, either };  // of a signed and of an unsigned download
  const struct {
    const char* name;
    end is_signed, is_unsigned;
    std::function<reply(const request&)> later;  // what follows a first answer that broke in the second chunk
  } cases[] = {
      {"honest", right, right, [&](const request& r) { return honest(file, r); }},
      {"knows no ranges", right, right, [&](const request&) { return honest(file, {}); }},
      {"chunked, knows no ranges", right, right,
       [&](const request&) {
         return reply{{chunked}, file};
       }},
      {"begins before", right, right, [&](const request& r) { return ranged(file, *r.from - 5, size - 1); }},
      {"begins behind", refused, refused,
       [&](const request& r) { return ranged(file, *r.from + 1, size - 1); }},
      {"ends early", right, right,
       [&](const request& r) { return ranged(file, *r.from, std::min(*r.from + 2 * kChunk, size - 1)); }},
      {"a byte at a time", refused, either, [&](const request& r) { return ranged(file, *r.from, *r.from); }},
      {"shifted by one", refused, either,
       [&](const request& r) {
         return reply{ranged(file, *r.from, size - 1).header, tail(file, *r.from - 1)};
       }},
      {"more than it says", right, right,
       [&](const request& r) {
         return reply{ranged(file, *r.from, size - 1).header, tail(file, *r.from) + other};
       }},
      {"several parts", refused, refused,
       [&](const request&) {
         return reply{{"HTTP/1.1 206 x", "Content-Type: multipart/byteranges; boundary=x"}, "--x\r\n" + file};
       }},
      {"another total", refused, refused, [&](const request& r) { return ranged(other, *r.from, size - 1); }},
      {"another file", refused, refused,
       [&](const request& r) { return ranged(std::string(file.size(), 'x'), *r.from, size - 1, "\"2\""); }},
      {"another file, whole", refused, refused,
       [&](const request&) { return honest(std::string(file.size(), 'x'), {}, "\"2\""); }},
      {"the same under another validator", right, refused,
       [&](const request& r) { return honest(file, r, "\"2\""); }},
      {"compressed", refused, refused,
       [&](const request& r) {
         reply sent = honest(file, r);
         sent.header.emplace_back("content-encoding: GZIP");
         return sent;
       }},
      {"contradicts itself", refused, refused,
       [&](const request& r) {
         reply sent = honest(file, r);
         sent.header.emplace_back("content-length: 1");
         sent.header.emplace_back("content-length: 2");
         return sent;
       }},
      {"a page, for logging in", refused, refused,
       [&](const request&) { return honest("please log in", {}); }},
      {"gone", refused, refused,
       [&](const request&) {
         return reply{{"HTTP/1.1 410 Gone"}, ""};
       }},
      {"not satisfiable", refused, refused,
       [&](const request&) {
         return reply{{"HTTP/1.1 416 x"}, ""};
       }},
      {"no status", refused, refused,
       [&](const request&) {
         return reply{{"HTTP/1.1"}, file};
       }},
  };
  for (const auto& row : cases) {
    for (const bool is_signed : {true, false}) {
      paper_network net(file, is_signed);
      const auto server = [&](const request& r) {
        return net.requests == 1 ? cut(honest(file, r), half) : row.later(r);
      };
      const judgement found = net.run(server);
      const end wanted = is_signed ? row.is_signed : row.is_unsigned;
      if (wanted == either) continue;  // bytes that nobody signed: the updater's own checks decide
      EXPECT_LE(net.requests, 5) << row.name << is_signed;
      EXPECT_EQ(file.compare(0, net.out.size(), net.out), 0) << row.name << is_signed;
      EXPECT_EQ(net.out.size() == size, wanted == right) << row.name << is_signed << found.why;
      EXPECT_EQ(found.what == verdict::refused, wanted == refused) << row.name << is_signed;
    }
  }
}

TEST(FetchDownload, LengthIsAskedForWhenNobodyTellsIt) {
  const std::string file = noise(3 * kChunk + 5);
  for (const bool knows_ranges : {true, false}) {
    paper_network net(file, false);
    const auto server = [&](const request& r) {
      return r.from && knows_ranges ? honest(file, r) : reply{{"HTTP/1.1 200 OK"}, file};
    };
    EXPECT_EQ(net.run(server).what, knows_ranges ? verdict::usable : verdict::refused);
    EXPECT_TRUE(net.out == (knows_ranges ? file : "")) << knows_ranges;
  }
}

TEST(FetchDownload, AnOutageCostsNothingButTime) {
  for (const uint32_t chunk : {kMinChunk, kMaxChunk}) {
    const std::string file = noise(4 * kMaxChunk);
    paper_network net(file, true, chunk);
    net.give_up = 9'000'000;
    const milliseconds back = net.now + 7'200'000;
    const auto server = [&](const request& r) {
      if (net.requests == 1) return cut(honest(file, r), 2 * kMaxChunk + 5);
      return net.now < back ? reply{{"HTTP/1.1 503 x"}, ""} : honest(file, r);
    };
    EXPECT_EQ(net.run(server).what, verdict::usable);
    EXPECT_TRUE(net.out == file);
    EXPECT_GE(net.now, back);
    EXPECT_LT(net.longest_silence, kUpdaterPatience / 2);
    EXPECT_LT(net.requests, 50);  // 1, 2, 4 ... 256 s, then 300 s
  }
}

TEST(FetchDownload, WaitsGrowAndEnd) {
  patience patient(5000, 10'000);
  for (const milliseconds base : {1, 2, 4, 8, 16, 32, 64, 128, 256, 300, 300}) {
    for (const uint32_t random : {0u, 77u, UINT32_MAX}) {
      patience copy = patient;
      const milliseconds wait = copy.wait_after_break(random, 0);
      EXPECT_GE(wait, base * 1000 * 2 / 3) << base;
      EXPECT_LE(wait, base * 1000 * 4 / 3 + 1) << base;
    }
    EXPECT_EQ(patience(patient).wait_after_break(1, 1'000'000), 1'000'000);
    (void)patient.wait_after_break(0, 0);
  }
  patient.recovered();
  EXPECT_LE(patient.wait_after_break(5, 0), 1334);
  EXPECT_EQ(patient.deadline(), 15'000);
  patient.progressed(9000);
  EXPECT_EQ(patient.deadline(), 19'000);
}

TEST(FetchDownload, HeadersAreRead) {
  const auto read = [](std::initializer_list<const char*> lines) {
    answer given;
    for (const char* const line : lines) take_header_line(given, line);
    return given;
  };
  const char* const rotten[] = {"bytes 5-4/9",
                                "bytes 0-9/9",
                                "bytes 0-/9",
                                "bytes -0/9",
                                "bytes */9",
                                "byte 0-1/9",
                                "bytes 0-1",
                                "bytes 0-1/9x",
                                "bytes 0-99999999999999999999/*",
                                ""};
  for (const char* const range : rotten) {
    EXPECT_FALSE(read({("content-range:"s + range).c_str()}).range) << range;
  }
  EXPECT_EQ(read({"CONTENT-range:\tBytes 3-7/*\r\n"}).range->last, 7u);
  const std::pair<answer, const char*> validators[] = {{read({"etag: \"a\"", "last-modified: d"}), "\"a\""},
                                                       {read({"etag: W/\"a\"", "last-modified: d"}), "d"},
                                                       {read({"last-modified: d", "date: d"}), ""},
                                                       {read({"etag: \"a\x01\""}), ""},
                                                       {read({"etag: \"a\"", "HTTP/1.1 200"}), ""}};
  for (const auto& [given, validator] : validators) EXPECT_EQ(validator_of(given), validator);
  const std::pair<answer, int64_t> pauses[] = {
      {read({"retry-after: 120"}), 120},
      {read({"retry-after: 99999999999"}), INT32_MAX},
      {read({"retry-after: -5"}), 0},
      {read({"retry-after: Sun, 06 Nov 1994 08:50:37 GMT", "date: Sun, 06 Nov 1994 08:49:37 GMT"}), 60},
      {read({"retry-after: Sun, 06 Nov 1994 08:48:37 GMT", "date: Sun, 06 Nov 1994 08:49:37 GMT"}), 0}};
  for (const auto& [given, seconds] : pauses)
    EXPECT_EQ(retry_after_seconds(given), seconds) << given.retry_after;
}

TEST(FetchDownload, PlacesAndMoments) {
  const std::pair<const char*, const char*> places[] = {
      {"http://h/p.img", "http://h/p.img.digests"},
      {"https://u:p@h/p.img?X-Sig=a/b?c", "https://u:p@h/p.img.digests?X-Sig=a/b?c"},
      {"http://h/p#part", "http://h/p.digests"},
      {"a?b", "a?b.digests"}};
  for (const auto& [place, expected] : places) EXPECT_EQ(beside(place, ".digests"), expected);
  const std::pair<const char*, const char*> urls[] = {
      {"https://user:secret@h:8/p?token=1", "https://h:8/p?..."},
      {"http://h/a@b", "http://h/a@b"},
      {"http://u:a@b@h", "http://h"},
      {"http://u:p@h?x", "http://h?..."}};
  for (const auto& [url, expected] : urls) EXPECT_EQ(public_url(url), expected);
  int starts[10] = {};
  for (int i = 0; i < 10'000; ++i) ++starts[own_moment("module " + std::to_string(i), 1000) / 100'000];
  for (const int count : starts) EXPECT_NEAR(count, 1000, 150);
  EXPECT_EQ(own_moment("x", 1000), own_moment("x", 1000));
}

TEST(FetchDownload, TheFeederKnowsWhoAsks) {
  const std::string path = "/secret/package.img", good = "GET /secret/package.img HTTP/1.1\r\nHost: h\r\n";
  EXPECT_EQ(asks_for(good + "\r\n", path), true);
  EXPECT_EQ(asks_for(good, path), std::nullopt);
  const char* const wrong[] = {
      "GET /secret/package.imx HTTP/1.1\r\n\r\n", "GET /secret/package.img2 HTTP/1.1\r\n\r\n",
      "POST /secret/package.img HTTP/1.1\r\n\r\n", "GET /secre HTTP/1.1\r\n\r\n", "\r\n\r\n"};
  for (const char* const head : wrong) EXPECT_EQ(asks_for(head, path), false) << head;
  sockaddr_in ours = {}, theirs = {};
  ours.sin_addr.s_addr = theirs.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  ours.sin_port = htons(0x9C40);
  theirs.sin_port = htons(0x1F90);
  char line[256];
  const auto row = [&](const char* local, const char* remote) {
    const uint32_t address = htonl(INADDR_LOOPBACK);
    snprintf(line, sizeof line,
             "  12: %08X:%s %08X:%s 01 00000000:00000000 02:00000A 00000000  1000  0 4711 1\n", address,
             local, address, remote);
    return line;
  };
  EXPECT_EQ(owner_in(row("9C40", "1F90"), ours, theirs), 1000u);
  EXPECT_EQ(owner_in(row("1F90", "9C40"), ours, theirs), std::nullopt);
  EXPECT_EQ(owner_in("  sl  local_address rem_address   st\n", ours, theirs), std::nullopt);
}

}  // namespace
}  // namespace fetch
