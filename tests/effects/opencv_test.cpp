// Pixelate beside OpenCV: a picture whose sides the cells divide, shrunk
// with cv::resize(INTER_AREA) (each output pixel the rounded mean of its
// cell) and blown up again with INTER_NEAREST, within one level.
#ifdef RZ_HAVE_OPENCV

#include "support/bitmaps.h"

#include <gtest/gtest.h>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

namespace rz::test {
namespace {

TEST(PixelateOpenCV, MeansAsAreaResizing) {
    cv::setNumThreads(1);
    for (const char *layout : {"grey8", "bgr24"})
        for (auto [cw, ch] : {std::pair{4, 3}, std::pair{6, 6}, std::pair{1, 12}, std::pair{48, 36}}) {
            SCOPED_TRACE(std::string(layout) + " " + std::to_string(cw) + "x" + std::to_string(ch));
            Bitmap b(FindLayout(layout), 48, 36, 21);
            const int type = b->nBitsPerPixel == 8 ? CV_8UC1 : CV_8UC3;
            const cv::Mat before = cv::Mat(36, 48, type, b->pData, b->nStride).clone();
            ASSERT_EQ(Rz_PixelateBitmap(b.get(), uint32_t(cw), uint32_t(ch), RZ_PIXELATE_MEAN), 1);
            cv::Mat small, want;
            cv::resize(before, small, cv::Size(48 / cw, 36 / ch), 0, 0, cv::INTER_AREA);
            cv::resize(small, want, before.size(), 0, 0, cv::INTER_NEAREST);
            EXPECT_LE(cv::norm(cv::Mat(36, 48, type, b->pData, b->nStride), want, cv::NORM_INF), 1.0);
        }
}

} // namespace
} // namespace rz::test

#endif
