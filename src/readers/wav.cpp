// Reading WAV files: a few numbers from the head, then one pass over the mapped frames.
#include "readers/wav.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cstring>
#include <string>
#include <utility>

#include "readers/wav_samples.h"
#include "runtime/exc.h"
#include "runtime/log.h"
#include "runtime/num_ramp.h"
#include "runtime/par.h"

namespace mirn2::rd {

using mirn3::exc::error_t;
using Bytes = std::span<const unsigned char>;

namespace {

constexpr size_t head_bytes = 36;         // RIFF header and the fixed part of the format chunk
constexpr size_t least_format_size = 16;  // of the format chunk, without its own header
constexpr uint16_t pcm = 1;
constexpr size_t block_samples = 1 << 18;  // what a thread takes at a time

// A little-endian number; bytes that do not exist are zeros.
template <typename T>
T number_at(Bytes bytes, uint64_t offset) noexcept {
  T value = 0;
  if (offset < bytes.size()) {
    std::memcpy(&value, bytes.data() + offset,
                std::min(sizeof value, bytes.size() - static_cast<size_t>(offset)));
  }
  return value;
}

// A chunk's id, readable whatever it is.
std::string id_at(Bytes bytes, uint64_t offset) {
  std::string id;
  for (uint64_t i = offset; i < std::min<uint64_t>(offset + 4, bytes.size()); ++i) {
    id += std::isprint(bytes[i]) != 0 ? static_cast<char>(bytes[i]) : '?';
  }
  return id;
}

struct Head {
  explicit Head(Bytes file)
      : format_size(number_at<uint32_t>(file, 16)),
        format(number_at<uint16_t>(file, 20)),
        channels(number_at<uint16_t>(file, 22)),
        rate(number_at<uint32_t>(file, 24)),
        bits(number_at<uint16_t>(file, 34)),
        data_head(head_bytes + std::max<uint64_t>(format_size, least_format_size) - least_format_size),
        stated(number_at<uint32_t>(file, data_head + 4)),
        data(std::min<uint64_t>(data_head + 8, file.size())),
        present(std::min<uint64_t>(stated, file.size() - data)) {
    if (bits == 0) throw error_t("Invalid 'bitsPerSample' value");
    if (channels == 0) throw error_t("Number of channels cannot be zero");
  }

  uint64_t samples() const noexcept { return present * 8 / (uint64_t{channels} * bits); }

  uint32_t format_size;  // bytes of the format chunk after its own header
  uint16_t format, channels;
  uint32_t rate;       // samples a second
  uint16_t bits;       // of one sample
  uint64_t data_head;  // offset of the data chunk's header
  uint64_t stated;     // size of the data in bytes, as its header says
  uint64_t data;       // offset of the data
  uint64_t present;    // bytes of the data that the file really has
};

void report_oddities(const std::filesystem::path& path, Bytes file, const Head& head) {
  const auto report = [&](const std::string& what) {
    mirn3::log::write(mirn3::log::warning, fmt::format("WAV file '{}': {}", path.string(), what));
  };
  if (head.data_head + 8 > file.size()) {
    report(fmt::format("the file ends at byte {}, before the data chunk that its head announces at byte {}",
                       file.size(), head.data_head));
    return;
  }
  if (const std::string id = id_at(file, head.data_head); id != "data") {
    report(
        fmt::format("a chunk '{}' stands where the data chunk is expected and is read in its place; "
                    "rewrite the file without it to get the samples",
                    id));
  }
  if (head.present < head.stated) {
    report(fmt::format("{} of the {} bytes of data that the head announces are there", head.present,
                       head.stated));
  }
}

}  // namespace

// The file, kept mapped between loads: another channel finds its pages ready.
struct ReaderWAV::Learned {
  mirn3::sys::FileStamp stamp;
  mirn3::sys::Mapping file;
};

bool probe_wav(const std::filesystem::path& path, std::string* why) {
  std::array<unsigned char, head_bytes> bytes{};
  mirn3::sys::File file(path, mirn3::sys::read_binary);
  const Bytes head(bytes.data(), std::fread(bytes.data(), 1, bytes.size(), file.stream()));
  const auto refuse = [&](const std::string& reason) {
    if (why != nullptr) *why = fmt::format("'{}' cannot be read as WAV: {}", path.string(), reason);
    return false;
  };
  if (id_at(head, 0) != "RIFF" || id_at(head, 8) != "WAVE") {
    return refuse("it does not begin with the marks RIFF and WAVE; convert it to plain PCM WAV");
  }
  if (id_at(head, 12) != "fmt ") {
    return refuse(fmt::format("a chunk '{}' stands before the format chunk; rewrite the file without it",
                              id_at(head, 12)));
  }
  if (head.size() < head_bytes) return refuse("it ends inside its head");
  return true;
}

ReaderWAV::ReaderWAV(std::filesystem::path source) : Reader(std::move(source)) {}

void ReaderWAV::scan() {
  const Head head(mirn3::sys::Mapping(path_).bytes());
  VariableNode root;
  std::unordered_map<std::string, size_t> index;
  for (size_t k = 0; k < head.channels; ++k) {
    const std::string name = fmt::format("channel{}", k + 1);
    root.children.push_back({name, name, {}});
    index[name] = k;
  }
  root_ = std::move(root);
  index_ = std::move(index);
  forget();
}

std::shared_ptr<ReaderWAV::Learned> ReaderWAV::learn() {
  return kept_.current(path_, [&](const mirn3::sys::FileStamp& stamp) {
    return std::make_shared<Learned>(Learned{stamp, mirn3::sys::Mapping(path_)});
  });
}

void ReaderWAV::forget() noexcept { kept_.drop(); }

void ReaderWAV::load(rto_t& request) {
  const auto found = index_.find(std::string(request.name));
  if (found == index_.end()) return refuse_name(request);
  const size_t channel = found->second;
  const std::shared_ptr<Learned> known = learn();
  const Bytes file = known->file.bytes();
  const Head head(file);
  if (channel >= head.channels) {
    throw error_t(fmt::format("WAV file '{}' was rewritten and has only {} channels now: open it again",
                              path_.string(), head.channels));
  }
  if (reported_ != known->stamp) {
    report_oddities(path_, file, head);
    reported_ = known->stamp;
  }

  const size_t samples = head.samples();
  const double step = head.rate != 0 ? 1.0 / head.rate : 1.0;
  const size_t width = head.bits / 8;
  const bool readable = head.format == pcm && (width == 1 || width == 2 || width == 4);
  request.x = mirn3::num::ramp(step, samples);
  mirn3::shared_vector<double> y;
  if (readable) y.resize_for_overwrite(samples);
  const wav::Channel from{file.data() + head.data, width * head.channels, width, channel};
  double* const values = y.data();
  mirn3::par::run(readable ? (samples + block_samples - 1) / block_samples : 0, [&](size_t block) {
    const size_t first = block * block_samples, last = std::min(first + block_samples, samples);
    wav::extract(from, first, last, values);
  });

  if (head.format != pcm) {
    throw error_t(fmt::format("Unsupported audio format ({}) for file {:s}.", head.format, path_.string()));
  }
  if (!readable) {
    throw error_t(
        fmt::format("Unsupported bits per sample value ({}) for file {:s}.", head.bits, path_.string()));
  }
  request.y = std::move(y);
  if (head.rate == 0) {
    warn("The source provided an invalid time vector");
    warn(fmt::format("A strictly increasing vector of indexes will be used instead for file '{:s}'",
                     path_.string()));
  }
}

}  // namespace mirn2::rd
