// Selection networks for the small median windows (2x2 to 5x5), built at
// compile time: Batcher's odd-even merge sort for the window's sample count,
// then pruned from the output backwards, keeping only the comparators that
// feed the wanted rank (a comparator whose other output is unused becomes a
// single min or max). Each step is a min or max, so the network runs on
// whole rows at once and the compiler turns it into vector code.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <utility>

#ifndef RZ_FORCE_INLINE
#if defined(__GNUC__)
#define RZ_FORCE_INLINE inline __attribute__((always_inline))
#else
#define RZ_FORCE_INLINE inline
#endif
#endif

namespace rz::filt {

struct NetStep {
    uint8_t a, b;  // a < b
    uint8_t kind;  // 0: a = min, b = max; 1: a = min only; 2: b = max only
};

template <int N> struct NetworkBuild {
    std::array<NetStep, 512> steps{};
    int count = 0;
};

// Comparators of the sorting network for N inputs, in order.
template <int N> constexpr NetworkBuild<N> BatcherNetwork() {
    NetworkBuild<N> net;
    for (int p = 1; p < N; p += p)
        for (int k = p; k > 0; k /= 2)
            for (int j = k % p; j + k < N; j += 2 * k)
                for (int i = 0; i < k && i + j + k < N; ++i)
                    if ((i + j) / (2 * p) == (i + j + k) / (2 * p))
                        net.steps[net.count++] = NetStep{uint8_t(i + j), uint8_t(i + j + k), 0};
    return net;
}

// The steps that decide output `rank` of N inputs, in execution order.
template <int N, int Rank> constexpr NetworkBuild<N> SelectionNetwork() {
    const NetworkBuild<N> sort = BatcherNetwork<N>();
    std::array<bool, N> need{};
    need[Rank] = true;
    NetworkBuild<N> rev;
    for (int c = sort.count - 1; c >= 0; --c) {
        const NetStep s = sort.steps[c];
        if (need[s.a] && need[s.b])
            rev.steps[rev.count++] = NetStep{s.a, s.b, 0};
        else if (need[s.a])
            rev.steps[rev.count++] = NetStep{s.a, s.b, 1};
        else if (need[s.b])
            rev.steps[rev.count++] = NetStep{s.a, s.b, 2};
        else
            continue;
        need[s.a] = need[s.b] = true;
    }
    NetworkBuild<N> net;
    for (int c = rev.count - 1; c >= 0; --c) net.steps[net.count++] = rev.steps[c];
    return net;
}

// Median rank of an n x n window: the lower middle for even n.
constexpr int MedianRank(int n) { return n % 2 ? n * n / 2 : n * n / 2 - 1; }

template <int Side> struct MedianNet {
    static constexpr int kCount = Side * Side;
    static constexpr int kRank = MedianRank(Side);
    static constexpr NetworkBuild<kCount> kNet = SelectionNetwork<kCount, kRank>();
};

template <class V, const auto &Net, int I> RZ_FORCE_INLINE void NetApplyOne(V *v) {
    constexpr NetStep s = Net.steps[I];
    if constexpr (s.kind == 0) {
        const V lo = std::min(v[s.a], v[s.b]);
        const V hi = std::max(v[s.a], v[s.b]);
        v[s.a] = lo;
        v[s.b] = hi;
    } else if constexpr (s.kind == 1) {
        v[s.a] = std::min(v[s.a], v[s.b]);
    } else {
        v[s.b] = std::max(v[s.a], v[s.b]);
    }
}

template <class V, const auto &Net, int... I> RZ_FORCE_INLINE void NetApplyAll(V *v, std::integer_sequence<int, I...>) {
    (NetApplyOne<V, Net, I>(v), ...);
}

// Runs the network on v in place; the result is v[rank].
template <class V, const auto &Net> RZ_FORCE_INLINE void NetApply(V *v) {
    NetApplyAll<V, Net>(v, std::make_integer_sequence<int, Net.count>{});
}

} // namespace rz::filt
