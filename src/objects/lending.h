// Lent samples: a result with the same time stamps as its operand shows the operand's buffer instead of
// a copy, until somebody wants to write to one of the two. Scripts see two vectors of their own; memory
// holds one for as long as both stay as they are.
//
// An Array that borrows says so in `borrows`. Arrays that share a buffer on purpose (copies of a series,
// a record and the objects that show it) do not borrow: they go on seeing the same samples. So whoever is
// about to write to an Array, or to share its buffer on purpose, calls one of the functions below first.
//
// Common samples are lent by a source: all variables of a table show its one vector of time stamps. A source
// never writes, so nobody keeps books of them; a record that has them takes a copy of its own, for all who
// show it, when one of its Arrays is about to be written.
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

// Before sharing the buffer on purpose: an Array that borrows, or shows common samples, gets its own.
void stop_borrowing(ArrayObject* array);

// An Array that shows the time stamps of a record: a new one, or this one. Throws python_error too.
Ref make_time_array(const std::shared_ptr<TimeSeries>& record);
void show_times(ArrayObject* array, const std::shared_ptr<TimeSeries>& record);

// Common time stamps of a record become its own, for it and for every Array that shows them as its.
void own_times(TimeSeries& record);

// Before a record gets other time stamps: Arrays that show the present ones go their own way.
void part_with_times(TimeSeries& record) noexcept;

// Gives the Array another vector; what it borrowed is handed back.
void replace_samples(ArrayObject* array, Samples samples) noexcept;

// The Array goes away.
void return_loan(ArrayObject* array) noexcept;

}  // namespace mirn2
