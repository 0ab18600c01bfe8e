// Least-squares fits of a straight line, an exponential and a polynomial.
//
// Ordinary least squares, solved by Householder QR (Golub & Van Loan, Matrix Computations, 5.2 and 5.3) in
// a Chebyshev basis on x shifted and scaled to [-1, 1], with y shifted and scaled alike: time stamps in Unix
// seconds and values with a large offset lose nothing. The coefficients are converted to powers of X in
// extended precision at the end. Long inputs are reduced block by block (Demmel et al. 2012, tall-skinny
// QR), on all cores, in memory that does not grow with the rows of a block; the result does not depend on
// the number of cores.
//
// All throw exc::error_t, with a sentence that says what to do, for fewer samples than coefficients, for
// samples that are not finite, and for stamps that do not tell the coefficients apart (all equal, or
// fewer different ones than coefficients).
#pragma once

#include <cstddef>
#include <vector>

#include "kvalo/export.h"

namespace mirn3::dsp {

struct fit_t {
  std::vector<double> coefficients;
  // The correlation of fitted and measured values, 0 ... 1; for the exponential fit of X and ln Y, with its
  // sign. NaN when all measured values are equal.
  double r;
};

// Y = A * X + B: coefficients A, B.
MIRN3_API fit_t fit_lin(const double* x, const double* y, size_t n);

// Y = A * exp(B * X), as the line that fits ln Y best: coefficients A, B. Throws for a Y that is not
// greater than zero too. A is 0 or infinity when exp() of the line's constant is.
MIRN3_API fit_t fit_exp(const double* x, const double* y, size_t n);

// Y = B0 + B1 * X + ... + Bn * X^n: order + 1 coefficients, the constant first. 1 <= order <= 9.
MIRN3_API fit_t fit_pol(const double* x, const double* y, size_t n, size_t order);

}  // namespace mirn3::dsp
