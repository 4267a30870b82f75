// OpenCV where it computes what we compute (8-bit grey and 24-bit, view 1, no
// region): a check on the references themselves, written by another team.
#ifdef RZ_HAVE_OPENCV
#include "support/bitmaps.h"

#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <functional>
#include <string>
#include <vector>

namespace rz::test {
namespace {

using Peer = std::function<void(const cv::Mat &, cv::Mat &)>;

cv::Mat Pixels(Bitmap &b) {
    return cv::Mat(b->nHeight, b->nWidth, b->nBitsPerPixel == 8 ? CV_8UC1 : CV_8UC3, b->pData, b->nStride);
}

// op: -1 median, else a morphology operation.
Peer Rank(int op, int n) {
    return [op, n](const cv::Mat &s, cv::Mat &d) {
        const cv::Mat square = cv::Mat::ones(n, n, CV_8U);
        const cv::Point anchor((n - 1) / 2, (n - 1) / 2);
        if (op < 0) cv::medianBlur(s, d, n);
        else cv::morphologyEx(s, d, op, square, anchor, 1, cv::BORDER_REPLICATE);
    };
}

// Radius in tenths of a pixel, as the export takes it.
Peer Gauss(int radius) {
    return [radius](const cv::Mat &s, cv::Mat &d) {
        const double sigma = (2.0 * (radius * 0.1 + 1.0) + 0.5) / 3.0;
        const int r = int(3.0 * sigma);
        cv::GaussianBlur(s, d, cv::Size(2 * r + 1, 2 * r + 1), sigma, sigma, cv::BORDER_REPLICATE);
    };
}

TEST(FiltersPeer, AgreeWithOpenCv) {
    cv::setNumThreads(1);
    constexpr int32_t kw = 3, kh = 2, ax = 1, ay = 0, divisor = 5, offset = 7;
    const int32_t coef[kw * kh] = {1, -2, 3, 4, 0, 2};
    std::vector<int32_t> record(8 + kw * kh);
    auto *user = reinterpret_cast<UserFilterKernel *>(record.data());
    *user = UserFilterKernel{USERFILTERKERNEL_SIZE, kw, kh, ax, ay, divisor, offset, RZ_UF_TRUNCATE, {0}};
    std::copy(coef, coef + kw * kh, user->matrix);
    const Peer sums = [&](const cv::Mat &s, cv::Mat &d) {
        cv::Mat k(kh, kw, CV_64F), v;
        for (int i = 0; i < kw * kh; ++i) k.at<double>(i / kw, i % kw) = coef[i];
        cv::filter2D(s, v, CV_64F, k, {ax, ay}, 0, cv::BORDER_REPLICATE);
        v.reshape(1).forEach<double>([](double &x, const int *) {
            x = std::clamp(double(int64_t(x) / divisor + offset), 0.0, 255.0);
        });
        v.convertTo(d, s.type());
    };
    const struct {
        const char *name;
        std::function<int32_t(BitmapDesc *)> op;
        Peer peer;
        double tolerance;
    } cases[] = {
        {"median 3", [](BitmapDesc *b) { return Rz_MedianFilterBitmap(b, 3); }, Rank(-1, 3), 0},
        {"median 7", [](BitmapDesc *b) { return Rz_MedianFilterBitmap(b, 7); }, Rank(-1, 7), 0},
        {"min 4", [](BitmapDesc *b) { return Rz_MinFilterBitmap(b, 4); }, Rank(cv::MORPH_ERODE, 4), 0},
        {"max 5", [](BitmapDesc *b) { return Rz_MaxFilterBitmap(b, 5); }, Rank(cv::MORPH_DILATE, 5), 0},
        {"user 3x2", [&](BitmapDesc *b) { return Rz_UserFilterBitmap(b, user); }, sums, 0},
        {"gaussian 15", [](BitmapDesc *b) { return Rz_GaussianFilterBitmap(b, 15); }, Gauss(15), 1},
        {"gaussian 200", [](BitmapDesc *b) { return Rz_GaussianFilterBitmap(b, 200); }, Gauss(200), 1},
    };
    for (const auto &c : cases)
        for (const char *layout : {"grey8", "bgr24"}) {
            SCOPED_TRACE(std::string(c.name) + " " + layout);
            Bitmap got(FindLayout(layout), 67, 41, 5), before(got);
            ASSERT_EQ(c.op(got.get()), 1);
            cv::Mat want;
            c.peer(Pixels(before), want);
            EXPECT_LE(cv::norm(Pixels(got), want, cv::NORM_INF), c.tolerance);
        }
}

// The 3x3 median moves whole vectors along a row in chunks, the last vector
// of a chunk pulled back over the one before: widths around a vector and
// across several chunks, 16-bit grey too.
TEST(FiltersPeer, Median3OnLongRows) {
    cv::setNumThreads(1);
    uint32_t seed = 3;
    for (const char *layout : {"grey8", "bgr24", "grey16"})
        for (int32_t w : {63, 64, 65, 530, 1100}) {
            SCOPED_TRACE(std::string(layout) + " " + std::to_string(w));
            Bitmap got(FindLayout(layout), w, 5, seed++), before(got);
            const int type = got->nBitsPerPixel == 16 ? CV_16UC1 : got->nBitsPerPixel == 8 ? CV_8UC1 : CV_8UC3;
            const auto mat = [&](Bitmap &b) { return cv::Mat(b->nHeight, b->nWidth, type, b->pData, b->nStride); };
            ASSERT_EQ(Rz_MedianFilterBitmap(got.get(), 3), 1);
            cv::Mat want;
            cv::medianBlur(mat(before), want, 3);
            EXPECT_EQ(cv::norm(mat(got), want, cv::NORM_INF), 0);
        }
}

} // namespace
} // namespace rz::test
#endif
