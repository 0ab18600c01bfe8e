// WAV files: channels, samples and time, and what heads that lie are good for.
#include "readers/wav.h"

#include <gmock/gmock.h>

#include <cstring>

#include "runtime/exc.h"
#include "runtime/home.h"
#include "runtime/mem.h"

namespace {

namespace fs = std::filesystem;
using mirn2::rd::probe_wav;
using mirn2::rd::ReaderWAV;
using mirn2::rd::rto_t;
using mirn3::exc::error_t;
using testing::ElementsAre;

template <typename T>
std::string bytes_of(std::initializer_list<T> values) {
  std::string bytes(values.size() * sizeof(T), '\0');
  std::memcpy(bytes.data(), std::data(values), bytes.size());
  return bytes;
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

struct Samples {
  std::vector<double> x, y;
  std::string error;
};

class WavReader : public Home {
 protected:
  fs::path write(const Wav& wav) const { return make("sound.wav", wav.bytes()); }

  Samples load(ReaderWAV& reader, const std::string& name = "channel1") const {
    rto_t request{.tag_key = "", .name = name, .x = {}, .y = {}};
    Samples samples;
    samples.error = message_of<error_t>([&] { reader.load(request); });
    samples.x.assign(request.x.begin(), request.x.end());
    samples.y.assign(request.y.begin(), request.y.end());
    return samples;
  }
  Samples load(const Wav& wav, const std::string& name = "channel1") const {
    ReaderWAV reader(write(wav));
    reader.scan();
    return load(reader, name);
  }
};

TEST_F(WavReader, GivesRawIntegersOfEveryWidth) {
  struct Case {
    Wav wav;
    std::vector<double> first, second;
  };
  const std::string three = bytes_of<int16_t>({1, -1, 2, -32768, 32767, -3});
  const Case cases[] = {
      {{.channels = 2, .bits = 8, .data = std::string("\x00\x80\xff\x01", 4)}, {0, 255}, {128, 1}},
      {{.channels = 2, .data = three}, {1, 2, 32767}, {-1, -32768, -3}},
      {{.channels = 3, .data = three}, {1, -32768}, {-1, 32767}},
      {{.channels = 2, .bits = 32, .data = bytes_of<int32_t>({INT32_MIN, 5, 7, INT32_MAX})},
       {-2147483648.0, 7},
       {5, 2147483647.0}},
      // A frame begun is no frame; what follows the data is not data.
      {{.channels = 2, .data = three.substr(0, 11), .rest = three}, {1, 2}, {-1, -32768}},
      {{.channels = 2, .data = three, .format_size = 18, .extension = std::string(2, '\x55')},
       {1, 2, 32767},
       {-1, -32768, -3}},
      // Twelve bits count as twelve, but stand in whole bytes.
      {{.channels = 2, .bits = 12, .data = std::string("\1\2\3\4\5\6", 6)}, {1, 3}, {2, 4}},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(load(c.wav, "channel1").y, c.first) << c.wav.bits << " bits, " << c.wav.channels << " channels";
    EXPECT_EQ(load(c.wav, "channel2").y, c.second) << c.wav.bits << " bits";
    EXPECT_EQ(load(c.wav, "channel2").x.size(), c.second.size());
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
    ReaderWAV reader(write({.channels = channels, .rate = 44100, .data = data}));
    reader.scan();
    for (size_t channel = 0; channel < channels; ++channel) {
      const Samples got = load(reader, "channel" + std::to_string(channel + 1));
      ASSERT_EQ(got.y.size(), frames);
      size_t wrong = 0;
      for (size_t i = 0; i < frames; ++i) {
        wrong += got.x[i] != static_cast<double>(i) * (1.0 / 44100.0);
        wrong += got.y[i] != static_cast<int16_t>((i * channels + channel) * 40503u);
      }
      EXPECT_EQ(wrong, 0u) << channels;
    }
  }
}

TEST_F(WavReader, NamesChannelsAndMakesTimeFromTheRate) {
  const Wav wav{.channels = 2, .rate = 8000, .data = std::string(32000, 'x')};
  ReaderWAV reader(write(wav));
  reader.scan();
  ASSERT_EQ(reader.variables().size(), 2u);
  EXPECT_EQ(reader.variables()[1].name, "channel2");
  EXPECT_EQ(reader.variables()[1].full_name, "channel2");
  const Samples samples = load(reader, "channel2");
  ASSERT_EQ(samples.x.size(), 8000u);
  EXPECT_EQ(samples.x.back(), 7999 * (1.0 / 8000));
  EXPECT_THAT(load(reader, "channel3").error, testing::HasSubstr("'channel3' has no samples"));
  EXPECT_THAT(load({.rate = 0, .data = "abcdef"}).x, ElementsAre(0, 1, 2));
}

TEST_F(WavReader, RefusesWhatItCannotReadWithTheTimeFilled) {
  const std::string path = (folder / "sound.wav").string();
  const std::pair<Wav, std::string> cases[] = {
      {{.format = 3, .bits = 32}, "Unsupported audio format (3) for file " + path + "."},
      {{.format = 0xfffe}, "Unsupported audio format (65534) for file " + path + "."},
      {{.bits = 24}, "Unsupported bits per sample value (24) for file " + path + "."},
      {{.bits = 7}, "Unsupported bits per sample value (7) for file " + path + "."},
      {{.bits = 64}, "Unsupported bits per sample value (64) for file " + path + "."}};
  for (auto [wav, message] : cases) {
    wav.data = std::string(static_cast<size_t>(wav.bits) * 2, 'x');
    const Samples samples = load(wav);
    EXPECT_EQ(samples.error, message);
    EXPECT_EQ(samples.x.size(), 16u) << message;
    EXPECT_TRUE(samples.y.empty()) << message;
  }
  for (const auto& [wav, message] : {std::pair{Wav{.bits = 0}, "Invalid 'bitsPerSample' value"},
                                     {Wav{.channels = 0}, "Number of channels cannot be zero"}}) {
    ReaderWAV reader(write(wav));
    EXPECT_EQ(message_of<error_t>([&] { reader.scan(); }), message);
  }
  ReaderWAV missing(folder / "missing.wav");
  EXPECT_THROW(missing.scan(), error_t);
}

TEST_F(WavReader, TouchesOnlyBytesThatAreThereAndLogsWhatIsOdd) {
  struct Case {
    Wav wav;
    std::vector<double> samples;
    std::string logged;
  };
  const std::string data = bytes_of<int16_t>({1, 2, 3});
  const Case cases[] = {
      {{.data = data, .stated = 0xffffffff}, {1, 2, 3}, "6 of the 4294967295 bytes"},
      {{.data = data.substr(0, 5), .stated = 6}, {1, 2}, "5 of the 6 bytes"},
      {{.channels = 65535, .bits = 32, .data = data, .stated = 0x7fffffff}, {}, "6 of the"},
      {{.data = data, .format_size = 0xffffffff}, {}, "before the data chunk"},
      {{.data = data, .marks = "RIFFWAVEfmt LIST"}, {1, 2, 3}, "a chunk 'LIST' stands where"},
      // A format chunk that says it is too short is as long as its fields.
      {{.data = data, .format_size = 0}, {1, 2, 3}, ""},
      {{.data = data, .stated = 0}, {}, ""},
  };
  for (const Case& c : cases) {
    const size_t before = log_lines(" 2 ").size();
    ReaderWAV reader(write(c.wav));
    reader.scan();
    for (int round = 0; round < 2; ++round) EXPECT_EQ(load(reader).y, c.samples) << c.logged;
    const auto lines = log_lines(" 2 ");
    ASSERT_EQ(lines.size(), before + !c.logged.empty()) << c.logged;
    if (c.logged.empty()) continue;
    EXPECT_THAT(lines.back(), testing::HasSubstr(c.logged));
  }
  // Every cut of a file: an error or some of the samples.
  const std::string whole = Wav{.channels = 2, .data = data + data}.bytes();
  for (size_t size = 0; size <= whole.size(); ++size) {
    const fs::path file = make("cut.wav", whole.substr(0, size));
    EXPECT_EQ(probe_wav(file), size >= 36) << size;
    ReaderWAV reader(file);
    if (size < 35) {
      EXPECT_EQ(message_of<error_t>([&] { reader.scan(); }), "Invalid 'bitsPerSample' value");
      continue;
    }
    reader.scan();
    EXPECT_EQ(load(reader).y.size(), size < 44 ? 0 : (size - 44) / 4) << size;
  }
}

// Data so large that its bits do not fit 32 bits: a file of holes.
TEST_F(WavReader, CountsSamplesOfLargeData) {
  constexpr uint32_t bytes = 0x2000'0002;
  const fs::path file = write({.channels = 65535, .bits = 32, .stated = bytes});
  fs::resize_file(file, 44 + uint64_t{bytes});
  ReaderWAV reader(file);
  reader.scan();
  EXPECT_EQ(load(reader, "channel65535").y, std::vector<double>(bytes / 4 / 65535));
}

TEST_F(WavReader, LooksAgainWhenTheFileChanges) {
  ReaderWAV reader(write({.channels = 2, .data = bytes_of<int16_t>({1, 2, 3, 4})}));
  reader.scan();
  EXPECT_THAT(load(reader, "channel2").y, ElementsAre(2, 4));
  write({.channels = 2, .data = bytes_of<int16_t>({1, 2, 3, 4, 5, 6})});
  EXPECT_THAT(load(reader, "channel2").y, ElementsAre(2, 4, 6));
  reader.forget();
  EXPECT_THAT(load(reader, "channel2").y, ElementsAre(2, 4, 6));
  write({.channels = 1, .data = bytes_of<int16_t>({1, 2, 3, 4, 5})});
  EXPECT_THAT(load(reader, "channel2").error, testing::HasSubstr("has only 1 channels now"));
  EXPECT_THAT(load(reader, "channel1").y, ElementsAre(1, 2, 3, 4, 5));
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
    EXPECT_EQ(probe_wav(write(wav), &why), reason.empty());
    EXPECT_THAT(why, testing::HasSubstr(reason));
  }
}

}  // namespace
