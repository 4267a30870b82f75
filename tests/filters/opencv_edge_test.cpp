// The edge detector beside cv::filter2D with replicated borders: the
// kernel sums in floating point (exact for these small integers), then the
// documented truncated division and threshold; Sobel and Prewitt with their
// 3x3 kernels and the magnitude, the both-direction codes as the OR.
#ifdef RZ_HAVE_OPENCV

#include "support/bitmaps.h"

#include <gtest/gtest.h>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

namespace rz::test {
namespace {

struct Operator {
    uint32_t code;
    float k[9];
    int divisor;
    bool magnitude;
};

const Operator kOperators[] = {
    {EDG_SOBEL_HORIZONTAL, {-1, -2, -1, 0, 0, 0, 1, 2, 1}, 4, true},
    {EDG_SOBEL_VERTICAL, {-1, 0, 1, -2, 0, 2, -1, 0, 1}, 4, true},
    {EDG_PREWITT_HORIZONTAL, {-1, -1, -1, 0, 0, 0, 1, 1, 1}, 3, true},
    {EDG_PREWITT_VERTICAL, {-1, 0, 1, -1, 0, 1, -1, 0, 1}, 3, true},
    {EDG_LAPLACE_FOUR, {0, -1, 0, -1, 4, -1, 0, -1, 0}, 4, false},
    {EDG_LAPLACE_EIGHT, {-1, -1, -1, -1, 8, -1, -1, -1, -1}, 4, false},
    {EDG_LAPLACE_CROSS, {1, -2, 1, -2, 4, -2, 1, -2, 1}, 4, false},
    {EDG_LAPLACE_DIAGONAL, {-1, 0, -1, 0, 4, 0, -1, 0, -1}, 4, false},
    {EDG_LAPLACE_VERTICAL, {0, -1, 0, 0, 2, 0, 0, -1, 0}, 2, false},
    {EDG_LAPLACE_HORIZONTAL, {0, 0, 0, -1, 2, -1, 0, 0, 0}, 2, false},
    {EDG_GRADIENT_N, {1, 1, 1, 1, -2, 1, -1, -1, -1}, 5, false},
    {EDG_GRADIENT_NE, {1, 1, 1, -1, -2, 1, -1, -1, 1}, 5, false},
    {EDG_GRADIENT_E, {-1, 1, 1, -1, -2, 1, -1, 1, 1}, 5, false},
    {EDG_GRADIENT_SE, {-1, -1, 1, -1, -2, 1, 1, 1, 1}, 5, false},
    {EDG_GRADIENT_S, {-1, -1, -1, 1, -2, 1, 1, 1, 1}, 5, false},
    {EDG_GRADIENT_SW, {1, -1, -1, 1, -2, -1, 1, 1, 1}, 5, false},
    {EDG_GRADIENT_W, {1, 1, -1, 1, -2, -1, 1, 1, -1}, 5, false},
    {EDG_GRADIENT_NW, {1, 1, 1, 1, -2, -1, 1, -1, -1}, 5, false},
};

cv::Mat Marks(const cv::Mat &src, const Operator &op, int threshold) {
    cv::Mat sum;
    cv::filter2D(src, sum, CV_32F, cv::Mat(3, 3, CV_32F, const_cast<float *>(op.k)), cv::Point(-1, -1), 0,
                 cv::BORDER_REPLICATE);
    cv::Mat out(src.size(), src.type());
    const int n = src.cols * src.channels();
    for (int y = 0; y < src.rows; ++y)
        for (int i = 0; i < n; ++i) {
            int g = int(sum.ptr<float>(y)[i]);
            if (op.magnitude) g = std::abs(g);
            out.ptr<uint8_t>(y)[i] = g / op.divisor > threshold ? 255 : 0;
        }
    return out;
}

TEST(OpenCVEdges, EveryOperatorMatchesFilter2D) {
    cv::setNumThreads(1);
    uint32_t seed = 5;
    for (const char *layout : {"grey8", "bgr24"})
        for (auto [w, h] : {std::pair{1, 1}, std::pair{1, 29}, std::pair{31, 1}, std::pair{64, 45}}) {
            Bitmap b(FindLayout(layout), w, h, seed++);
            const cv::Mat src = cv::Mat(h, w, b->nBitsPerPixel == 8 ? CV_8UC1 : CV_8UC3, b->pData, b->nStride).clone();
            for (const Operator &op : kOperators)
                for (int threshold : {0, 30}) {
                    Bitmap got(b);
                    ASSERT_EQ(Rz_EdgeDetectorBitmap(got.get(), threshold, op.code), 1);
                    const cv::Mat mine(h, w, src.type(), got->pData, got->nStride);
                    EXPECT_EQ(cv::norm(mine, Marks(src, op, threshold), cv::NORM_INF), 0)
                        << layout << " " << w << "x" << h << " code " << op.code << " threshold " << threshold;
                }
            // The both-direction codes: the two maps ORed.
            for (uint32_t family : {0u, 2u}) {
                Bitmap got(b);
                ASSERT_EQ(Rz_EdgeDetectorBitmap(got.get(), 12, family == 0 ? EDG_SOBEL_BOTH : EDG_PREWITT_BOTH), 1);
                cv::Mat both;
                cv::bitwise_or(Marks(src, kOperators[family], 12), Marks(src, kOperators[family + 1], 12), both);
                const cv::Mat mine(h, w, src.type(), got->pData, got->nStride);
                EXPECT_EQ(cv::norm(mine, both, cv::NORM_INF), 0) << layout << " " << w << "x" << h;
            }
        }
}

} // namespace
} // namespace rz::test

#endif
