// The combine operations and the alpha blend beside OpenCV on random 8-bit
// grey and 24-bit images of several shapes (1 x N and N x 1 among them):
// logic, saturating sum and differences, absolute difference, minimum and
// maximum exactly; the product, which OpenCV rounds and we truncate, and
// the blend, which OpenCV rounds in floating point and we floor in 256ths,
// within one level and never above the peer.
#ifdef RZ_HAVE_OPENCV

#include "support/bitmaps.h"

#include <gtest/gtest.h>
#include <opencv2/core.hpp>

#include <functional>

namespace rz::test {
namespace {

cv::Mat AsMat(Bitmap &b) {
    return cv::Mat(b->nHeight, b->nWidth, b->nBitsPerPixel == 8 ? CV_8UC1 : CV_8UC3, b->pData, b->nStride);
}

struct Peer {
    uint32_t flags;
    std::function<void(const cv::Mat &s, const cv::Mat &d, cv::Mat &out)> peer;
    int tolerance; // 0 exact; 1: within one level and not above the peer
};

TEST(OpenCVCombine, OperationsMatchThePeer) {
    cv::setNumThreads(1);
    const Peer peers[] = {
        {CBF_AND, [](auto &s, auto &d, auto &o) { cv::bitwise_and(s, d, o); }, 0},
        {CBF_OR, [](auto &s, auto &d, auto &o) { cv::bitwise_or(s, d, o); }, 0},
        {CBF_XOR, [](auto &s, auto &d, auto &o) { cv::bitwise_xor(s, d, o); }, 0},
        {CBF_ADD, [](auto &s, auto &d, auto &o) { cv::add(s, d, o); }, 0},
        {CBF_SUBTRACT_SRC, [](auto &s, auto &d, auto &o) { cv::subtract(d, s, o); }, 0},
        {CBF_SUBTRACT_DST, [](auto &s, auto &d, auto &o) { cv::subtract(s, d, o); }, 0},
        {CBF_ABSDIFF, [](auto &s, auto &d, auto &o) { cv::absdiff(s, d, o); }, 0},
        {CBF_MIN, [](auto &s, auto &d, auto &o) { cv::min(s, d, o); }, 0},
        {CBF_MAX, [](auto &s, auto &d, auto &o) { cv::max(s, d, o); }, 0},
        {CBF_MULTIPLY, [](auto &s, auto &d, auto &o) { cv::multiply(s, d, o, 1.0 / 255); }, 1},
    };
    uint32_t seed = 9;
    for (const char *layout : {"grey8", "bgr24"})
        for (auto [w, h] : {std::pair{1, 1}, std::pair{1, 37}, std::pair{41, 1}, std::pair{77, 53}}) {
            Bitmap dst(FindLayout(layout), w, h, seed++), src(FindLayout(layout), w, h, seed++);
            const cv::Mat s = AsMat(src).clone(), d = AsMat(dst).clone();
            for (const Peer &p : peers) {
                Bitmap got(dst);
                ASSERT_EQ(Rz_CombineBitmapExt(got.get(), 0, 0, w, h, src.get(), 0, 0, p.flags), 1);
                cv::Mat want;
                p.peer(s, d, want);
                const cv::Mat mine = AsMat(got);
                EXPECT_LE(cv::norm(mine, want, cv::NORM_INF), p.tolerance) << layout << " flags " << p.flags;
                EXPECT_EQ(cv::countNonZero(cv::Mat(mine > want).reshape(1)), 0) << layout << " flags " << p.flags;
            }
            for (int opacity : {1, 64, 200, 255}) {
                Bitmap got(dst);
                ASSERT_EQ(Rz_AlphaBlendBitmap(got.get(), 0, 0, w, h, src.get(), 0, 0, opacity), 1);
                cv::Mat want;
                cv::addWeighted(s, opacity / 256.0, d, 1 - opacity / 256.0, 0, want);
                const cv::Mat mine = AsMat(got);
                EXPECT_LE(cv::norm(mine, want, cv::NORM_INF), 1) << layout << " opacity " << opacity;
                EXPECT_EQ(cv::countNonZero(cv::Mat(mine > want).reshape(1)), 0) << layout << " opacity " << opacity;
            }
        }
}

} // namespace
} // namespace rz::test

#endif
