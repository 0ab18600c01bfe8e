// WAV files: channels, samples and time, and what heads that lie are good for.
#include "readers/wav.h"

#include <gmock/gmock.h>

#include <cstring>

#include "loading.h"
#include "runtime/exc.h"

namespace {

namespace fs = std::filesystem;
using mirn2::rd::probe_wav;
using mirn2::rd::ReaderWAV;
using mirn3::exc::error_t;
using testing::ElementsAre;
using testing::HasSubstr;

template <typename T>
std::string bytes_of(std::initializer_list<T> values) {
  return {reinterpret_cast<const char*>(std::data(values)), values.size() * sizeof(T)};
}

// A WAV file, field by field.
struct Wav {
  uint16_t format = 1, channels = 1;
  uint32_t rate = 8000;
  uint16_t bits = 16;
  std::string data = {};
  uint32_t format_size = 16;
  std::string extension = {};  // of the format chunk
  int64_t stated = -1;         // size of the data chunk; -1: what it is
  const char* marks = "RIFFWAVEfmt data";
  std::string rest = {};

  std::string bytes() const {
    const std::string m = marks;
    const auto size = static_cast<uint32_t>(stated < 0 ? static_cast<int64_t>(data.size()) : stated);
    return m.substr(0, 4) + bytes_of({uint32_t{36}}) + m.substr(4, 8) + bytes_of({format_size}) +
           bytes_of({format, channels}) + bytes_of({rate, uint32_t{0}}) + bytes_of({uint16_t{0}, bits}) +
           extension + m.substr(12) + bytes_of({size}) + data + rest;
  }
};

class WavReader : public Reading<ReaderWAV> {
 protected:
  Opened open(const Wav& wav) const { return Reading::open(wav.bytes()); }
};

TEST_F(WavReader, CountsWholeFramesOfTheDataOnly) {
  const std::string three = bytes_of<int16_t>({1, -1, 2, -32768, 32767, -3});
  const struct {
    Wav wav;
    std::vector<double> first, second;
  } cases[] = {
      {{.channels = 3, .data = three}, {1, -32768}, {-1, 32767}},
      {{.channels = 2, .bits = 32, .data = bytes_of({INT32_MIN, INT32_MAX})}, {INT32_MIN}, {INT32_MAX}},
      // An unfinished frame does not count; what follows the data is not data.
      {{.channels = 2, .data = three.substr(0, 11), .rest = three}, {1, 2}, {-1, -32768}},
      {{.channels = 2, .data = three, .format_size = 18, .extension = "UU"}, {1, 2, 32767}, {-1, -32768, -3}},
      // Twelve bits count as twelve, but stand in whole bytes.
      {{.channels = 2, .bits = 12, .data = "\1\2\3\4\5\6"}, {1, 3}, {2, 4}},
  };
  for (const auto& c : cases) {
    auto reader = open(c.wav);
    EXPECT_EQ(load(*reader, "channel1").y, c.first) << c.wav.bits << " bits";
    EXPECT_EQ(load(*reader, "channel2").y, c.second) << c.wav.bits << " bits";
  }
}

// Long enough for the vector loops and several threads, at every alignment of the channel.
TEST_F(WavReader, GivesTheSameBitsWhereverSamplesLie) {
  for (const uint16_t channels : {1, 2, 3}) {
    constexpr size_t frames = 600'007;
    std::string data(frames * channels * 2, '\0');
    for (size_t i = 0; i < data.size() / 2; ++i) {
      const auto value = static_cast<int16_t>(i * 40503u);
      std::memcpy(&data[2 * i], &value, 2);
    }
    auto reader = open({.channels = channels, .rate = 44100, .data = data});
    ASSERT_EQ(reader->variables().size(), channels);
    for (size_t channel = 0; channel < channels; ++channel) {
      const Samples got = load(*reader, "channel" + std::to_string(channel + 1));
      ASSERT_EQ(got.y.size(), frames);
      size_t wrong = 0;
      for (size_t i = 0; i < frames; ++i) {
        wrong += got.x[i] != static_cast<double>(i) * (1.0 / 44100.0);
        wrong += got.y[i] != static_cast<int16_t>((i * channels + channel) * 40503u);
      }
      EXPECT_EQ(wrong, 0u) << channels;
    }
  }
  EXPECT_THAT(load(*open({.rate = 0, .data = "abcdef"}), "channel1").x, ElementsAre(0, 1, 2));
}

TEST_F(WavReader, RefusesWhatItCannotReadWithTheTimeFilled) {
  const std::tuple<uint16_t, uint16_t, std::string> cases[] = {
      {3, 32, "Unsupported audio format (3)"},
      {0xfffe, 16, "Unsupported audio format (65534)"},
      {1, 24, "Unsupported bits per sample value (24)"},
      {1, 7, "Unsupported bits per sample value (7)"},
      {1, 64, "Unsupported bits per sample value (64)"}};
  for (const auto& [format, bits, message] : cases) {
    auto reader = open({.format = format, .bits = bits, .data = std::string(bits * 2u, 'x')});
    mirn2::rd::rto_t request{.tag_key = "", .name = "channel1", .x = {}, .y = {}};
    EXPECT_EQ(message_of<error_t>([&] { reader->load(request); }),
              message + " for file " + reader->path().string() + ".");
    EXPECT_EQ(request.x.size(), 16u) << message;
    EXPECT_TRUE(request.y.empty()) << message;
  }
  EXPECT_EQ(message_of<error_t>([&] { open({.bits = 0}); }), "Invalid 'bitsPerSample' value");
  EXPECT_EQ(message_of<error_t>([&] { open({.channels = 0}); }), "Number of channels cannot be zero");
  EXPECT_THROW(open_file(folder / "missing.wav"), error_t);
}

TEST_F(WavReader, TouchesOnlyBytesThatAreThereAndLogsWhatIsOdd) {
  const std::string data = bytes_of<int16_t>({1, 2, 3});
  const struct {
    Wav wav;
    std::vector<double> samples;
    std::string logged;
  } cases[] = {
      {{.data = data, .stated = 0xffffffff}, {1, 2, 3}, "6 of the 4294967295 bytes"},
      {{.data = data.substr(0, 5), .stated = 6}, {1, 2}, "5 of the 6 bytes"},
      {{.channels = 65535, .bits = 32, .data = data, .stated = 0x7fffffff}, {}, "6 of the"},
      {{.data = data, .format_size = 0xffffffff}, {}, "before the data chunk"},
      {{.data = data, .marks = "RIFFWAVEfmt LIST"}, {1, 2, 3}, "a chunk 'LIST' stands where"},
      // A format chunk that says it is too short is as long as its fields.
      {{.data = data, .format_size = 0}, {1, 2, 3}, ""},
      {{.data = data, .stated = 0}, {}, ""},
  };
  for (const auto& c : cases) {
    const size_t before = log_lines(" 2 ").size();
    auto reader = open(c.wav);
    for (int round = 0; round < 2; ++round) EXPECT_EQ(load(*reader, "channel1").y, c.samples) << c.logged;
    const auto lines = log_lines(" 2 ");
    ASSERT_EQ(lines.size(), before + !c.logged.empty()) << c.logged;
    if (c.logged.empty()) continue;
    EXPECT_THAT(lines.back(), HasSubstr(c.logged));
  }
  // Every cut of a file: an error or some of the samples.
  const std::string whole = Wav{.channels = 2, .data = data + data}.bytes();
  for (size_t size = 0; size <= whole.size(); ++size) {
    const fs::path file = make("cut.wav", whole.substr(0, size));
    EXPECT_EQ(probe_wav(file), size >= 36) << size;
    if (size < 35) {
      EXPECT_EQ(message_of<error_t>([&] { open_file(file); }), "Invalid 'bitsPerSample' value");
    } else {
      EXPECT_EQ(load(*open_file(file), "channel1").y.size(), size < 44 ? 0 : (size - 44) / 4) << size;
    }
  }
}

// Data so large that its bits do not fit 32 bits: a file of holes.
TEST_F(WavReader, CountsSamplesOfLargeData) {
  constexpr uint32_t bytes = 0x2000'0002;
  auto reader = open({.channels = 65535, .bits = 32, .stated = bytes});
  fs::resize_file(reader->path(), 44 + uint64_t{bytes});
  EXPECT_EQ(load(*reader, "channel65535").y, std::vector<double>(bytes / 4 / 65535));
}

TEST_F(WavReader, LooksAgainWhenTheFileChanges) {
  auto reader = open({.channels = 2, .data = bytes_of<int16_t>({1, 2, 3, 4})});
  EXPECT_THAT(load(*reader, "channel2").y, ElementsAre(2, 4));
  open({.channels = 2, .data = bytes_of<int16_t>({1, 2, 3, 4, 5, 6})});
  EXPECT_THAT(load(*reader, "channel2").y, ElementsAre(2, 4, 6));
  reader->forget();
  EXPECT_THAT(load(*reader, "channel2").y, ElementsAre(2, 4, 6));
  const auto refusal = [&](const char* name) { return message_of<error_t>([&] { load(*reader, name); }); };
  EXPECT_THAT(refusal("channel3"), HasSubstr("'channel3' has no samples"));
  open({.channels = 1, .data = bytes_of<int16_t>({1, 2, 3, 4, 5})});
  EXPECT_THAT(refusal("channel2"), HasSubstr("has only 1 channels now"));
  EXPECT_THAT(load(*reader, "channel1").y, ElementsAre(1, 2, 3, 4, 5));
}

TEST_F(WavReader, IsOfferedOnlyItsOwnLayout) {
  const std::pair<Wav, std::string> cases[] = {
      {{}, ""},
      {{.format = 3, .bits = 24}, ""},
      {{.marks = "RF64WAVEds64data"}, "RIFF and WAVE"},
      {{.marks = "RIFFAVI LISTdata"}, "RIFF and WAVE"},
      {{.marks = "RIFFWAVEbextdata"}, "a chunk 'bext' stands before"}};
  for (const auto& [wav, reason] : cases) {
    std::string why;
    EXPECT_EQ(probe_wav(make("any.wav", wav.bytes()), &why), reason.empty());
    EXPECT_THAT(why, HasSubstr(reason));
  }
}

}  // namespace
