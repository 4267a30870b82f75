/*
 * runs.h - run tables: a set of pixels stored as sorted, disjoint [x0, x1)
 * runs per row, with an offset index so any row is found directly.
 *
 * Everything a region needs is built from three operations on these tables:
 * a boolean merge of two rows (one sweep over both run lists), reorienting a
 * table (row reversal and run mirroring) and transposing it (rows become
 * columns) by a sweep that only visits the places where consecutive rows
 * differ. All memory comes from the kernel's counted allocator; failures are
 * reported by return value, never thrown.
 */
#ifndef RZ_DISPLAY_RUNS_H
#define RZ_DISPLAY_RUNS_H

#include "rzkrn.h"

#include <cstddef>
#include <cstdint>
#include <utility>

namespace rzdis {

/* An owning array from the kernel allocator. */
template <class T>
class Buf {
public:
    Buf() = default;
    Buf(const Buf &) = delete;
    Buf &operator=(const Buf &) = delete;
    Buf(Buf &&o) noexcept : p_(o.p_), n_(o.n_) {
        o.p_ = nullptr;
        o.n_ = 0;
    }
    Buf &operator=(Buf &&o) noexcept {
        if (this != &o) {
            reset();
            p_ = std::exchange(o.p_, nullptr);
            n_ = std::exchange(o.n_, 0);
        }
        return *this;
    }
    ~Buf() { reset(); }

    void reset() {
        if (p_)
            KrnMemFree(p_);
        p_ = nullptr;
        n_ = 0;
    }
    /* Fresh (uninitialised) storage for n elements; false on failure. */
    bool alloc(size_t n) {
        reset();
        size_t bytes = KrnCheckedSize(n ? n : 1, sizeof(T), 1);
        if (!bytes)
            return false;
        p_ = static_cast<T *>(KrnMemAlloc(bytes));
        if (!p_)
            return false;
        n_ = n;
        return true;
    }
    /* Keeps the contents; false (and unchanged) on failure. */
    bool grow(size_t n) {
        if (n <= n_)
            return true;
        if (!p_)
            return alloc(n);
        size_t bytes = KrnCheckedSize(n, sizeof(T), 1);
        if (!bytes)
            return false;
        void *q = KrnMemRealloc(p_, bytes);
        if (!q)
            return false;
        p_ = static_cast<T *>(q);
        n_ = n;
        return true;
    }
    T *data() const { return p_; }
    size_t size() const { return n_; }
    T &operator[](size_t i) const { return p_[i]; }

private:
    T *p_ = nullptr;
    size_t n_ = 0;
};

/* Runs of one row: values[0..count) as start, end pairs. */
struct RowRuns {
    const int32_t *values;
    size_t count;
};

/* A set of pixels of a rows x width grid. */
struct RunTable {
    int32_t rows = 0;
    int32_t width = 0;
    Buf<size_t> offsets; /* rows + 1 entries into values */
    Buf<int32_t> values;

    RowRuns row(int32_t r) const {
        if (r < 0 || r >= rows)
            return {nullptr, 0};
        return {values.data() + offsets[r], offsets[r + 1] - offsets[r]};
    }
    size_t totalValues() const { return rows > 0 ? offsets[rows] : 0; }
};

/*
 * Appends runs row by row. Runs of a row must come in increasing order;
 * touching or overlapping neighbours are joined and runs are clipped to
 * [0, width). A failed allocation is remembered and reported by finish().
 */
class TableBuilder {
public:
    bool begin(int32_t rows, int32_t width);
    void add(int64_t x0, int64_t x1) {
        if (x0 < 0)
            x0 = 0;
        if (x1 > width_)
            x1 = width_;
        if (x0 >= x1 || failed_)
            return;
        if (used_ > rowStart_ && values_[used_ - 1] >= x0) {
            if (x1 > values_[used_ - 1])
                values_[used_ - 1] = static_cast<int32_t>(x1);
            return;
        }
        if (used_ + 2 > values_.size() && !reserve(used_ + 2))
            return;
        values_[used_] = static_cast<int32_t>(x0);
        values_[used_ + 1] = static_cast<int32_t>(x1);
        used_ += 2;
    }
    void endRow() {
        offsets_[++row_] = used_;
        rowStart_ = used_;
    }
    /* Moves the finished table out; false when any allocation failed. */
    bool finish(RunTable &out);

private:
    bool reserve(size_t n);

    int32_t rows_ = 0;
    int32_t width_ = 0;
    int32_t row_ = 0;
    size_t used_ = 0;
    size_t rowStart_ = 0;
    bool failed_ = false;
    Buf<size_t> offsets_;
    Buf<int32_t> values_;
};

enum class Op { And, Or, Xor, Diff };

/* Emits the runs of op(a, b) of two sorted run lists. */
template <class Emit>
void mergeRuns(RowRuns a, RowRuns b, Op op, Emit &&emit) {
    size_t i = 0, j = 0;
    bool inA = false, inB = false, inside = false;
    int32_t start = 0;
    while (i < a.count || j < b.count) {
        int32_t x;
        if (j >= b.count || (i < a.count && a.values[i] <= b.values[j]))
            x = a.values[i];
        else
            x = b.values[j];
        /* Every boundary at x is applied before the result is looked at. */
        while (i < a.count && a.values[i] == x) {
            inA = !(i & 1);
            ++i;
        }
        while (j < b.count && b.values[j] == x) {
            inB = !(j & 1);
            ++j;
        }
        bool now;
        switch (op) {
        case Op::And: now = inA && inB; break;
        case Op::Or: now = inA || inB; break;
        case Op::Xor: now = inA != inB; break;
        default: now = inA && !inB; break;
        }
        if (now != inside) {
            if (now)
                start = x;
            else
                emit(start, x);
            inside = now;
        }
    }
}

/* Number of runs in each column of t; counts must hold t.width entries. */
bool columnRunCounts(const RunTable &t, Buf<size_t> &counts);
/* out = the transpose of t (t.width rows of t.rows width). */
bool transposeTable(const RunTable &t, RunTable &out);
/* out = t with rows in reverse order (flipRows) and/or runs mirrored
 * x -> width - 1 - x (mirror). */
bool reorientTable(const RunTable &t, bool flipRows, bool mirror, RunTable &out);

} // namespace rzdis

#endif
