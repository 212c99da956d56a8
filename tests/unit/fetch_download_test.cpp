// A package's download over any answers and breaks, and through hours of outage.
#include <gtest/gtest.h>

#include <functional>
#include <random>

#include "fetch/patience.h"
#include "tests/unit/paper_network.h"

namespace fetch {
namespace {

constexpr milliseconds kUpdaterPatience = 30'000;

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
       [&](const request& r) {
         return ranged(file, *r.from, std::min(*r.from + uint64_t{2} * kChunk, size - 1));
       }},
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
    const std::string file = noise(size_t{4} * kMaxChunk);
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

}  // namespace
}  // namespace fetch
