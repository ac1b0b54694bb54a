#include "fwlib/fragment_iterators.h"

#include <gtest/gtest.h>

#include "fwlib_fixture.h"

namespace qrx::test {
namespace {

// Body commands with these parameter lengths.
Bytes Body(std::initializer_list<uint8_t> paramLengths) {
  Bytes body;
  for (uint8_t length : paramLengths) {
    body.insert(body.end(), {0x8E, 0xFC, length});
    body.resize(body.size() + length, length);
  }
  return body;
}

// Signed images: the block the scheme chooses, then the body in groups of
// whole commands that close on a 4-byte multiple within 252 bytes. Recorded
// (BSEQ) images: their commands, without the event records.
TEST(Iterators, CutEachLayoutAndRefuseWhatTheyCannotServe) {
  struct Fragment {  // a Secure Send of image bytes [from, from + size), or the bare bytes
    uint8_t type;
    size_t from, size;
  };
  constexpr uint8_t kBare = 0xFF;
  using Fragments = std::vector<Fragment>;
  const Fragments first = {
      {0x00, 0, 128}, {0x03, 128, 252}, {0x03, 380, 4}, {0x02, 388, 252}, {0x02, 640, 4}};
  const Fragments second = {{0x00, 644, 128}, {0x03, 772, 96}, {0x02, 868, 96}};
  const Bytes body28 = Body({4, 4, 8, 0});
  const auto sfi = [](const Bytes& body) { return fwimage::BuildSfiImage({}, body); };
  Bytes longest = {0x01, 0x8E, 0xFC, 0xFF};  // a 258-byte recorded command
  longest.resize(259, 0x5A);
  const Bytes eventsOnly = {2, 0x0E, 4, 1, 0x8E, 0xFC, 0, 2, 0xFF, 2, 0x19, 0};
  struct Case {
    const char* name;
    Bytes image;
    uint8_t isOperational, isTlvForm, scheme;
    Fragments block, body;  // sent in this order; the walk stops where the last ends
    FwLibStatus end = kFwLibImageExhausted;
    uint32_t capacity = 258;
  };
  // clang-format off
  const Case cases[] = {
      {"644-byte image", sfi({}), 0, 0, 0, first, {}},
      {"28-byte group", sfi(body28), 0, 0, 0, first, {{1, 644, 28}}},
      {"cannot close within 252", sfi(Body({246, 2})), 0, 0, 0, first, {}, 12},
      {"last group cannot close", sfi(Body({1, 0})), 0, 0, 0, first, {{1, 644, 4}}, 12},
      {"two blocks, scheme 1", fwimage::BuildTwoBlockImage({}, true, body28), 0, 1, 1, second,
       {{1, 964, 28}}},
      {"short two-block image", fwimage::BuildTwoBlockImage({}, false, body28), 0, 1, 0, first,
       {{1, 644, 28}}},
      {"no iterator for mode 2", sfi({}), 2, 0, 0, {}, {}, 12},
      {"bseq: event records only", eventsOnly, 1, 0, 0, {}, {}, 4},
      {"bseq: command over capacity", longest, 1, 0, 0, {}, {}, 12, 257},
      {"bseq: command at capacity", longest, 1, 0, 0, {}, {{kBare, 1, 258}}},
  };
  // clang-format on
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    ImageContext walked(c.image, c.isOperational, c.isTlvForm, c.scheme);
    const auto [commands, end] = WalkAll(walked.context, c.capacity);
    Fragments sent = c.block;
    sent.insert(sent.end(), c.body.begin(), c.body.end());
    std::vector<Bytes> expected;
    for (const auto& [type, from, size] : sent) {
      Bytes command(c.image.begin() + from, c.image.begin() + from + size);
      if (type != kBare)
        command.insert(command.begin(), {0x09, 0xFC, static_cast<uint8_t>(size + 1), type});
      expected.push_back(command);
    }
    EXPECT_EQ(commands, expected);
    EXPECT_EQ(end, c.end);
    if (sent.empty()) continue;
    EXPECT_EQ(Get(walked.context.imageOffset), sent.back().from + sent.back().size);
  }
}

}  // namespace
}  // namespace qrx::test
