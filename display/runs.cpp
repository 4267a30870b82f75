/*
 * runs.cpp - building, reorienting and transposing run tables.
 *
 * Transposition walks the rows once with the previous row beside it: the
 * runs of (row y less row y-1) are the pixels where a column run opens at y,
 * the runs of (row y-1 less row y) those where one closes. So the work is
 * proportional to the number of column runs, not to the area. A first sweep
 * counts the runs per column to size the output exactly.
 */
#include "runs.h"

#include <algorithm>

namespace rzdis {

bool TableBuilder::begin(int32_t rows, int32_t width) {
    rows_ = rows < 0 ? 0 : rows;
    width_ = width < 0 ? 0 : width;
    row_ = 0;
    used_ = 0;
    rowStart_ = 0;
    failed_ = false;
    values_.reset();
    if (!offsets_.alloc(static_cast<size_t>(rows_) + 1))
        return false;
    offsets_[0] = 0;
    return true;
}

bool TableBuilder::reserve(size_t n) {
    size_t want = std::max<size_t>(n, values_.size() * 2);
    want = std::max<size_t>(want, 64);
    if (!values_.grow(want)) {
        failed_ = true;
        return false;
    }
    return true;
}

bool TableBuilder::finish(RunTable &out) {
    if (failed_)
        return false;
    /* Rows never closed by the caller are empty. */
    while (row_ < rows_)
        endRow();
    if (!values_.data() && !values_.alloc(0))
        return false;
    out.rows = rows_;
    out.width = width_;
    out.offsets = std::move(offsets_);
    out.values = std::move(values_);
    return true;
}

namespace {

/* Calls open(x, y) / close(x, y) for every pixel where a column run opens or
 * closes at row y, for y = 0 .. rows (row -1 and row `rows` are empty). */
template <class Open, class Close>
void sweepColumns(const RunTable &t, Open &&open, Close &&close) {
    RowRuns prev{nullptr, 0};
    for (int32_t y = 0; y <= t.rows; ++y) {
        RowRuns cur = t.row(y);
        mergeRuns(cur, prev, Op::Diff, [&](int32_t a, int32_t b) {
            for (int32_t x = a; x < b; ++x)
                open(x, y);
        });
        mergeRuns(prev, cur, Op::Diff, [&](int32_t a, int32_t b) {
            for (int32_t x = a; x < b; ++x)
                close(x, y);
        });
        prev = cur;
    }
}

} // namespace

bool columnRunCounts(const RunTable &t, Buf<size_t> &counts) {
    if (!counts.alloc(static_cast<size_t>(t.width)))
        return false;
    std::fill_n(counts.data(), counts.size(), size_t{0});
    /* Openings are counted with a difference array over x rather than per
     * pixel, so this pass costs only the row runs. */
    size_t *c = counts.data();
    RowRuns prev{nullptr, 0};
    Buf<int64_t> diff;
    if (!diff.alloc(static_cast<size_t>(t.width) + 1))
        return false;
    std::fill_n(diff.data(), diff.size(), int64_t{0});
    for (int32_t y = 0; y < t.rows; ++y) {
        RowRuns cur = t.row(y);
        mergeRuns(cur, prev, Op::Diff, [&](int32_t a, int32_t b) {
            a = std::clamp(a, 0, t.width);
            b = std::clamp(b, 0, t.width);
            if (a < b) {
                ++diff[static_cast<size_t>(a)];
                --diff[static_cast<size_t>(b)];
            }
        });
        prev = cur;
    }
    int64_t acc = 0;
    for (int32_t x = 0; x < t.width; ++x) {
        acc += diff[static_cast<size_t>(x)];
        c[x] = static_cast<size_t>(acc);
    }
    return true;
}

bool transposeTable(const RunTable &t, RunTable &out) {
    Buf<size_t> counts;
    if (!columnRunCounts(t, counts))
        return false;
    Buf<size_t> offsets, cursor;
    if (!offsets.alloc(static_cast<size_t>(t.width) + 1) || !cursor.alloc(static_cast<size_t>(t.width)))
        return false;
    size_t total = 0;
    for (int32_t x = 0; x < t.width; ++x) {
        offsets[x] = total;
        cursor[x] = total;
        total += 2 * counts[x];
    }
    offsets[t.width] = total;
    Buf<int32_t> values;
    if (!values.alloc(total))
        return false;
    const int32_t w = t.width;
    sweepColumns(
        t,
        [&](int32_t x, int32_t y) {
            if (x >= 0 && x < w)
                values[cursor[x]] = y;
        },
        [&](int32_t x, int32_t y) {
            if (x >= 0 && x < w) {
                values[cursor[x] + 1] = y;
                cursor[x] += 2;
            }
        });
    out.rows = t.width;
    out.width = t.rows;
    out.offsets = std::move(offsets);
    out.values = std::move(values);
    return true;
}

bool reorientTable(const RunTable &t, bool flipRows, bool mirror, RunTable &out) {
    Buf<size_t> offsets;
    Buf<int32_t> values;
    const size_t total = t.totalValues();
    if (!offsets.alloc(static_cast<size_t>(t.rows) + 1) || !values.alloc(total))
        return false;
    size_t used = 0;
    offsets[0] = 0;
    for (int32_t r = 0; r < t.rows; ++r) {
        RowRuns src = t.row(flipRows ? t.rows - 1 - r : r);
        if (mirror) {
            /* [a, b) becomes [w - b, w - a); the order reverses. */
            for (size_t k = src.count; k >= 2; k -= 2) {
                values[used++] = t.width - src.values[k - 1];
                values[used++] = t.width - src.values[k - 2];
            }
        } else {
            std::copy_n(src.values, src.count, values.data() + used);
            used += src.count;
        }
        offsets[static_cast<size_t>(r) + 1] = used;
    }
    out.rows = t.rows;
    out.width = t.width;
    out.offsets = std::move(offsets);
    out.values = std::move(values);
    return true;
}

} // namespace rzdis
