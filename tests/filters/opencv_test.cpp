// The filters beside OpenCV where it computes the same thing, on random
// images of several shapes (1 x N and N x 1 among them): cv::medianBlur,
// cv::erode / cv::dilate with a rectangular element and replicated borders
// (the anchor placed where our window puts the pixel), cv::filter2D sums
// in floating point for the predefined kernels (the division, bias and
// clamping then applied as documented), and cv::GaussianBlur within one
// grey level.
#ifdef RZ_HAVE_OPENCV

#include "filter_reference.h"

#include <gtest/gtest.h>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <cmath>
#include <string>

namespace rz::test {
namespace {

// The bitmap's pixel memory as a matrix (view 1, stored top-down).
cv::Mat AsMat(Bitmap &b) {
    const int type = b->nBitsPerPixel == 8 ? CV_8UC1 : b->nBitsPerPixel == 24 ? CV_8UC3 : CV_16UC1;
    return cv::Mat(b->nHeight, b->nWidth, type, b->pData, b->nStride);
}

struct Shape {
    int32_t w, h;
};
const Shape kShapes[] = {{1, 1}, {1, 23}, {23, 1}, {40, 37}, {97, 64}};

std::string Name(const char *layout, const Shape &s) {
    return std::string(layout) + " " + std::to_string(s.w) + "x" + std::to_string(s.h);
}

class OpenCV : public ::testing::Test {
  protected:
    void SetUp() override { cv::setNumThreads(1); }
};

TEST_F(OpenCV, MedianBlur) {
    uint32_t seed = 1;
    for (const char *layout : {"grey8", "bgr24", "grey16"})
        for (const Shape &s : kShapes)
            for (int n : {3, 5, 7, 9, 15, 31}) {
                if (std::string(layout) == "grey16" && n > 5) continue; // OpenCV: 8-bit only above 5
                SCOPED_TRACE(Name(layout, s) + " n " + std::to_string(n));
                Bitmap b(FindLayout(layout), s.w, s.h, seed++);
                cv::Mat want;
                cv::medianBlur(AsMat(b), want, n);
                ASSERT_EQ(Rz_MedianFilterBitmap(b.get(), uint32_t(n)), 1);
                EXPECT_EQ(cv::norm(AsMat(b), want, cv::NORM_INF), 0.0);
            }
}

TEST_F(OpenCV, ErodeAndDilate) {
    uint32_t seed = 100;
    for (const char *layout : {"grey8", "bgr24", "grey16"})
        for (const Shape &s : kShapes)
            for (int n : {1, 2, 3, 4, 5, 6, 8, 15, 40}) {
                SCOPED_TRACE(Name(layout, s) + " n " + std::to_string(n));
                const cv::Mat element = cv::getStructuringElement(cv::MORPH_RECT, cv::Size(n, n));
                const cv::Point anchor((n - 1) / 2, (n - 1) / 2);
                Bitmap lo(FindLayout(layout), s.w, s.h, seed++);
                Bitmap hi(lo);
                cv::Mat wantLo, wantHi;
                cv::erode(AsMat(lo), wantLo, element, anchor, 1, cv::BORDER_REPLICATE);
                cv::dilate(AsMat(hi), wantHi, element, anchor, 1, cv::BORDER_REPLICATE);
                ASSERT_EQ(Rz_MinFilterBitmap(lo.get(), uint32_t(n)), 1);
                ASSERT_EQ(Rz_MaxFilterBitmap(hi.get(), uint32_t(n)), 1);
                EXPECT_EQ(cv::norm(AsMat(lo), wantLo, cv::NORM_INF), 0.0) << "min";
                EXPECT_EQ(cv::norm(AsMat(hi), wantHi, cv::NORM_INF), 0.0) << "max";
            }
}

// Sums from filter2D, then as documented: divide (truncating) unless the
// divisor is 1, add the bias, clamp.
cv::Mat Finish(const cv::Mat &sums, int32_t divisor, int32_t bias, int depth) {
    const double top = depth == CV_8U ? 255 : 65535;
    const int64_t scale = depth == CV_8U ? 1 : 257;
    cv::Mat out(sums.size(), CV_MAKETYPE(depth, sums.channels()));
    const int n = sums.cols * sums.channels();
    for (int y = 0; y < sums.rows; ++y)
        for (int i = 0; i < n; ++i) {
            const int64_t s = int64_t(std::lround(sums.ptr<double>(y)[i]));
            const int64_t q = divisor == 1 ? s : s / divisor;
            const double v = std::clamp(double(q + bias * scale), 0.0, top);
            if (depth == CV_8U)
                out.ptr<uint8_t>(y)[i] = uint8_t(v);
            else
                out.ptr<uint16_t>(y)[i] = uint16_t(v);
        }
    return out;
}

TEST_F(OpenCV, Filter2DSumsForThePredefinedKernels) {
    uint32_t seed = 300;
    for (const char *layout : {"grey8", "bgr24", "grey16"})
        for (const Shape &s : kShapes)
            for (int32_t k = 0; k < SPF_COUNT; ++k) {
                SCOPED_TRACE(Name(layout, s) + " kernel " + std::to_string(k));
                Bitmap b(FindLayout(layout), s.w, s.h, seed++);
                cv::Mat kernel(3, 3, CV_32F);
                for (int i = 0; i < 9; ++i) kernel.at<float>(i / 3, i % 3) = float(kTable[k].c[i]);
                cv::Mat sums;
                cv::filter2D(AsMat(b), sums, CV_64F, kernel, cv::Point(-1, -1), 0, cv::BORDER_REPLICATE);
                const cv::Mat want = Finish(sums, 1, kTable[k].bias, AsMat(b).depth());
                ASSERT_EQ(Rz_SpatialFilterBitmap(b.get(), RZ_SPF_KERNEL(k)), 1);
                EXPECT_EQ(cv::norm(AsMat(b), want, cv::NORM_INF), 0.0);
            }
}

TEST_F(OpenCV, Filter2DSumsForSharpening) {
    uint32_t seed = 400;
    for (const char *layout : {"grey8", "bgr24"})
        for (int32_t sharpness : {1000, 500, 1, -1, -400, -1000}) {
            SCOPED_TRACE(std::string(layout) + " " + std::to_string(sharpness));
            const int32_t k = sharpness >= 0 ? 71 * (1000 - sharpness) / 999 : 71 * (sharpness + 1000) / 999;
            cv::Mat kernel(3, 3, CV_32F, cv::Scalar(sharpness >= 0 ? -1 : 1));
            kernel.at<float>(1, 1) = float(sharpness >= 0 ? k + 9 : k + 1);
            const int32_t divisor = sharpness >= 0 ? k + 1 : k + 9;
            Bitmap b(FindLayout(layout), 61, 43, seed++);
            cv::Mat sums;
            cv::filter2D(AsMat(b), sums, CV_64F, kernel, cv::Point(-1, -1), 0, cv::BORDER_REPLICATE);
            const cv::Mat want = Finish(sums, divisor, 0, CV_8U);
            ASSERT_EQ(Rz_SharpenBitmap(b.get(), sharpness), 1);
            EXPECT_EQ(cv::norm(AsMat(b), want, cv::NORM_INF), 0.0);
        }
}

TEST_F(OpenCV, GaussianBlurWithinOneGreyLevel) {
    uint32_t seed = 500;
    for (const char *layout : {"grey8", "bgr24"})
        for (const Shape &s : kShapes)
            for (int32_t radius : {1, 20, 57}) {
                SCOPED_TRACE(Name(layout, s) + " radius " + std::to_string(radius));
                const double sigma = (2.0 * (radius * 0.1 + 1.0) + 0.5) / 3.0;
                const int r = int(3.0 * sigma);
                Bitmap b(FindLayout(layout), s.w, s.h, seed++);
                cv::Mat want;
                cv::GaussianBlur(AsMat(b), want, cv::Size(2 * r + 1, 2 * r + 1), sigma, sigma, cv::BORDER_REPLICATE);
                ASSERT_EQ(Rz_GaussianFilterBitmap(b.get(), radius), 1);
                EXPECT_LE(cv::norm(AsMat(b), want, cv::NORM_INF), 1.0);
            }
}

} // namespace
} // namespace rz::test

#endif
