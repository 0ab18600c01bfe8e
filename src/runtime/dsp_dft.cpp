// The discrete Fourier transform over ducc0's transforms, which are headers only.
#include "runtime/dsp_dft.h"

#define DUCC0_CUSTOM_LOWLEVEL_THREADING
#include <ducc0/fft/fft1d_impl.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <memory>
#include <mutex>

#include "kvalo/shared_vector.h"
#include "runtime/par.h"

// The library's parallel loop: every part of the work once, on threads that live for the loop.
namespace ducc0::detail_threading {

namespace {

class Part final : public Scheduler {
 public:
  Part(size_t parts, size_t number, Range range) : parts_(parts), number_(number), range_(range) {}
  size_t num_threads() const override { return parts_; }
  size_t thread_num() const override { return number_; }
  Range getNext() override { return std::exchange(range_, Range()); }

 private:
  size_t parts_;
  size_t number_;
  Range range_;
};

}  // namespace

void execStatic(size_t nwork, size_t nthreads, size_t, std::function<void(Scheduler&)> work) {
  const size_t parts = std::clamp<size_t>(nthreads, 1, std::max<size_t>(nwork, 1));
  mirn3::par::run(parts, [&](size_t i) {
    Part part(parts, i, Range(nwork * i / parts, nwork * (i + 1) / parts));
    work(part);
  });
}

}  // namespace ducc0::detail_threading

namespace mirn3::dsp {

namespace {

using Complex = ducc0::Cmplx<double>;
using Roots = ducc0::UnityRoots<double, Complex>;

constexpr size_t least = 1 << 15;  // elements for which a thread pays off

double magnitude(const Complex& z) { return std::sqrt(z.r * z.r + z.i * z.i); }

using Plan = ducc0::detail_fft::pocketfft_c<double>;

// The plan of a length. The last one is kept, unless it is very long: spectra are seldom wanted of one
// variable alone, and the roots of unity take as long as a good part of the transform.
std::shared_ptr<const Plan> plan_of(size_t n) {
  constexpr size_t longest_kept = size_t{1} << 21;
  static std::mutex guard;
  static std::shared_ptr<const Plan> kept;
  {
    const std::lock_guard lock(guard);
    if (kept && kept->length() == n) return kept;
  }
  auto plan = std::make_shared<const Plan>(n, true);
  if (n <= longest_kept) {
    const std::lock_guard lock(guard);
    kept = plan;
  }
  return plan;
}

// Working memory, from where sample buffers come: large pages, and those that were freed last.
class Workspace {
 public:
  explicit Workspace(size_t n)
      : doubles_(2 * n), memory_(mem::allocate_samples(doubles_, mem::Content::any)) {}
  ~Workspace() { mem::free_samples(memory_, doubles_); }
  Workspace(const Workspace&) = delete;
  Workspace& operator=(const Workspace&) = delete;

  Complex* data() noexcept { return reinterpret_cast<Complex*>(memory_); }

 private:
  size_t doubles_;
  double* memory_;
};

// Complex transforms of one length in buffers of their own.
class Transform {
 public:
  explicit Transform(size_t n) : plan_(plan_of(n)), input_(n), scratch_(plan_->bufsize()) {}

  Complex* input() { return input_.data(); }

  // Transforms input(), which it may use as scratch memory. Not scaled; valid until the next call.
  const Complex* run(bool forward, size_t threads) {
    return plan_->exec(input_.data(), scratch_.data(), 1.0, forward, threads);
  }

 private:
  std::shared_ptr<const Plan> plan_;
  Workspace input_;
  Workspace scratch_;
};

size_t largest_prime_factor(size_t n) {
  size_t largest = 1;
  for (size_t factor = 2; factor * factor <= n; ++factor) {
    for (; n % factor == 0; n /= factor) largest = factor;
  }
  return std::max(largest, n);
}

// Whether the library, too, would need a convolution that dominates the work.
bool wants_chirp(size_t n) {
  const size_t prime = largest_prime_factor(n);
  return prime > 1000 && prime > n / prime;
}

// The first `count` values of the transform of x(0) ... x(n - 1), count <= n. With jk = (j^2 + k^2 -
// (k - j)^2) / 2 the sum becomes a convolution of x[j] * conj(b[j]) with b[m] = exp(pi * i * m^2 / n); it
// may wrap around where no result is read.
class Chirp {
 public:
  template <typename Input>
  Chirp(size_t n, size_t count, const Input& x)
      : n_(n),
        roots_(2 * n),
        length_(ducc0::detail_fft::util1d::good_size_cmplx(n + count - 1, 16)),
        signal_(length_) {
    Transform filter(length_);
    Complex* a = signal_.input();
    Complex* b = filter.input();
    const double scale = 1 / static_cast<double>(length_);
    std::fill(a + n, a + length_, Complex(0, 0));
    std::fill(b + count, b + length_ - n + 1, Complex(0, 0));
    for_chirp(n, [&](size_t j, const Complex& root) {
      a[j] = x(j) * root.conj();
      if (j < count) b[j] = root * scale;
    });
    for_chirp(n, [&](size_t j, const Complex& root) {
      if (j > 0) b[length_ - j] = root * scale;
    });

    const size_t threads = par::workers();
    const Complex* transformed[2];
    // Two transforms at once share the cores better than one after the other.
    par::run(2, [&](size_t which) {
      transformed[which] = (which == 0 ? signal_ : filter).run(true, std::max<size_t>(threads / 2, 1));
    });
    par::ranges(length_, least, [&](size_t first, size_t last) {
      for (size_t i = first; i < last; ++i) a[i] = transformed[0][i] * transformed[1][i];
    });
    result_ = signal_.run(false, threads);
  }

  Complex operator()(size_t k) const { return result_[k] * root(k).conj(); }
  // The factor that is left out has the absolute value 1.
  double magnitude_at(size_t k) const { return magnitude(result_[k]); }

 private:
  Complex root(size_t k) const { return roots_[k * k % (2 * n_)]; }

  template <typename Each>
  void for_chirp(size_t n, const Each& each) const {
    par::ranges(n, least, [&](size_t first, size_t last) {
      size_t square = first * first % (2 * n_);
      for (size_t j = first; j < last; ++j) {
        each(j, roots_[square]);
        square += 2 * j + 1;
        if (square >= 2 * n_) square -= 2 * n_;
      }
    });
  }

  size_t n_;
  Roots roots_;
  size_t length_;
  Transform signal_;
  const Complex* result_ = nullptr;
};

// From the transform z of x[2j] + i * x[2j + 1], j = 0 ... m - 1, to the magnitudes of that of x.
template <typename Half>
void spectrum_of_half(const Half& z, size_t m, std::span<double> out) {
  const Roots roots(2 * m);
  out[0] = std::abs(z(0).r + z(0).i);
  out[m] = std::abs(z(0).r - z(0).i);
  par::ranges(m - 1, least, [&](size_t first, size_t last) {
    for (size_t k = first + 1; k <= last; ++k) {
      const Complex a = z(k);
      const Complex b = z(m - k).conj();
      const Complex even = a + b;
      const Complex odd = (a - b) * roots[k].conj();
      out[k] = 0.5 * magnitude(Complex(even.r + odd.i, even.i - odd.r));
    }
  });
}

}  // namespace

void dft_magnitudes(std::span<const double> x, std::span<double> out) {
  const size_t n = x.size();
  const size_t m = n / 2;
  const size_t threads = n < least ? 1 : par::workers();
  if (n == 1) {
    out[0] = std::abs(x[0]);
  } else if (n % 2 == 0) {
    const auto pair = [&](size_t j) { return Complex(x[2 * j], x[2 * j + 1]); };
    if (wants_chirp(m)) {
      spectrum_of_half(Chirp(m, m, pair), m, out);
      return;
    }
    Transform half(m);
    auto* const input = reinterpret_cast<double*>(half.input());
    par::ranges(n, least, [&](size_t first, size_t last) {
      std::memcpy(input + first, x.data() + first, (last - first) * sizeof(double));
    });
    const Complex* z = half.run(true, threads);
    spectrum_of_half([&](size_t k) { return z[k]; }, m, out);
  } else if (wants_chirp(n)) {
    const Chirp chirp(n, m + 1, [&](size_t j) { return Complex(x[j], 0); });
    par::ranges(m + 1, least, [&](size_t first, size_t last) {
      for (size_t k = first; k < last; ++k) out[k] = chirp.magnitude_at(k);
    });
  } else {
    ducc0::detail_fft::pocketfft_r<double> plan(n, true);
    ducc0::aligned_array<double> values(n);
    std::copy(x.begin(), x.end(), values.data());
    plan.exec(values.data(), 1.0, true, threads);
    out[0] = std::abs(values[0]);
    for (size_t k = 1; k <= m; ++k) out[k] = magnitude(Complex(values[2 * k - 1], values[2 * k]));
  }
}

}  // namespace mirn3::dsp
