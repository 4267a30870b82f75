// Rz_ChangeBitmapHue by 120 degrees beside OpenCV's hexcone HSV rotation
// (BGR2HSV_FULL, hue + 85 of 256, HSV2BGR_FULL) on a photograph-like
// synthetic image. The models differ by design (a ratio hue inside each
// third of the circle, a fixed integer inverse), so the test prints how much
// and only guards against gross disagreement.
#ifdef RZ_HAVE_OPENCV

#include "colour_test_util.h"

#include <gtest/gtest.h>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <cstdio>

namespace rz::test {
namespace {

TEST(ChangeBitmapHueBesideOpenCV, RotationBy120Degrees) {
    // Smooth light, hue and saturation fields with sensor-like noise.
    const int w = 512, h = 384;
    cv::Mat src(h, w, CV_8UC3), hsv, theirs;
    std::mt19937 rng(2024);
    std::normal_distribution<double> noise(0.0, 3.0);
    Bitmap ours(FindLayout("bgr24"), w, h, 0);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            const double light = 0.5 + 0.38 * std::sin(x / 45.0 + 0.7) * std::cos(y / 61.0);
            const double theta = 2 * M_PI * (x / 310.0 + 0.3 * std::sin(y / 83.0));
            const double sat = 0.15 + 0.55 * (0.5 + 0.5 * std::sin((x + 2 * y) / 97.0));
            cv::Vec3b &p = src.at<cv::Vec3b>(y, x);
            for (int c = 0; c < 3; ++c)
                p[2 - c] = cv::saturate_cast<uint8_t>(255 * light * (1 + sat * std::cos(theta - c * 2 * M_PI / 3)) +
                                                      noise(rng));
            Put(ours, x, y, {p[2], p[1], p[0]});
        }
    cv::cvtColor(src, hsv, cv::COLOR_BGR2HSV_FULL);
    for (auto it = hsv.begin<cv::Vec3b>(); it != hsv.end<cv::Vec3b>(); ++it) (*it)[0] += 85; // 120 x 256 / 360
    cv::cvtColor(hsv, theirs, cv::COLOR_HSV2BGR_FULL);
    ASSERT_EQ(Rz_ChangeBitmapHue(ours.get(), 120), ST_SUCCESS);

    double sum = 0;
    int largest = 0;
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            const cv::Vec3b t = theirs.at<cv::Vec3b>(y, x);
            const Colour o = Get(ours, x, y);
            for (int d : {std::abs(o.r - t[2]), std::abs(o.g - t[1]), std::abs(o.b - t[0])}) {
                sum += d;
                largest = std::max(largest, d);
            }
        }
    const double mean = sum / (3.0 * w * h);
    std::printf("[ colour   ] hue +120 beside OpenCV HSV_FULL: mean |difference| %.3f, largest %d\n", mean, largest);
    EXPECT_LT(mean, 1.5);
    EXPECT_LT(largest, 32);
}

} // namespace
} // namespace rz::test

#endif
