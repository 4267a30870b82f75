// The bar shows the chain's overall percentage: operation i of n maps its
// own 0..100 to (i * 100 + p) / n. The SIGINT handler only sets a flag (it
// is reset to the default action, so a second Ctrl-C ends the process at
// once); the callback turns the flag into a stop value.
#include "tools/progress.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <unistd.h>

namespace rzimg {
namespace {

volatile std::sig_atomic_t g_interrupted = 0;

extern "C" void OnInterrupt(int) { g_interrupted = 1; }

struct sigaction g_previousAction;

} // namespace

Progress::Progress(bool show, int steps) : show_(show && isatty(STDERR_FILENO)), steps_(steps > 0 ? steps : 1) {
    if (const char *at = std::getenv("RZIMG_TEST_CANCEL_AT")) cancelAt_ = std::atoi(at);
    struct sigaction action = {};
    action.sa_handler = OnInterrupt;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESETHAND;
    sigaction(SIGINT, &action, &g_previousAction);
    KrnSetStatusCallback(&Progress::Callback, this, &prevFn_, &prevUser_);
}

Progress::~Progress() {
    clear();
    KrnSetStatusCallback(prevFn_, prevUser_, nullptr, nullptr);
    sigaction(SIGINT, &g_previousAction, nullptr);
}

bool Progress::cancelled() { return g_interrupted != 0; }

void Progress::begin(int step, const std::string &label) {
    step_ = step;
    label_ = label;
    draw(step_ * 100 / steps_);
}

void Progress::clear() {
    if (show_ && drawn_ >= 0) std::fputs("\r\x1b[K", stderr);
    drawn_ = -1;
}

void Progress::draw(int overall) {
    if (cancelAt_ >= 0 && overall >= cancelAt_) g_interrupted = 1;
    if (!show_ || overall == drawn_) return;
    drawn_ = overall;
    constexpr int kWidth = 30;
    char bar[kWidth + 1];
    int filled = overall * kWidth / 100;
    for (int i = 0; i < kWidth; ++i) bar[i] = i < filled ? '#' : '.';
    bar[kWidth] = '\0';
    std::fprintf(stderr, "\r[%s] %3d%%  %s (%d/%d)\x1b[K", bar, overall, label_.c_str(), step_ + 1, steps_);
    std::fflush(stderr);
}

int32_t RZAPI Progress::Callback(int32_t percent, void *user) {
    auto *self = static_cast<Progress *>(user);
    if (percent < 0) percent = 0;
    if (percent > 100) percent = 100;
    self->draw((self->step_ * 100 + percent) / self->steps_);
    return g_interrupted ? kCancelStatus : 1;
}

} // namespace rzimg
