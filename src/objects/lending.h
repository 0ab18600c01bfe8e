// Lent samples: a result with the same time stamps as its operand shows the operand's buffer instead of
// a copy, until somebody wants to write to one of the two. Scripts see two vectors of their own; memory
// holds one for as long as both stay as they are.
//
// An Array that borrows says so in `borrows`. Arrays that share a buffer on purpose (copies of a series,
// a record and the objects that show it) do not borrow: they go on seeing the same samples. So whoever is
// about to write to an Array, or to share its buffer on purpose, calls one of the functions below first.
//
// Everything here is called with the interpreter lock held and throws std::bad_alloc, with nothing
// changed, when there is no memory for a copy.
#pragma once

#include "objects/array.h"

namespace mirn2 {

// A new Array with the samples of this one: borrowed where that pays, else copied. A buffer that a view
// (memoryview, NumPy) may write into at any time is never lent. Throws python_error too.
Ref lend(PyObject* array);

// Before writing into the Array's buffer: those who borrow it, or this Array if it is a borrower, get
// copies of their own. The Array's vector may have another buffer afterwards.
void prepare_write(ArrayObject* array);

// The same for a vector that is no Array's own (a record's).
void prepare_write(const Samples& samples);

// Before sharing the buffer on purpose: an Array that borrows gets a copy of its own.
void stop_borrowing(ArrayObject* array);

// Gives the Array another vector; what it borrowed is handed back.
void replace_samples(ArrayObject* array, Samples samples) noexcept;

// The Array goes away.
void return_loan(ArrayObject* array) noexcept;

}  // namespace mirn2
