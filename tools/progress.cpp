// The bar shows the run's overall percentage: step i of n maps its own
// 0..100 to (i * 100 + p) / n. The SIGINT / SIGTERM handler only sets a
// flag, which the callback turns into a stop value; it stays installed, so a
// second Ctrl-C does not kill the process halfway through a save and leave
// its temporary file behind (loads and saves ask the callback every row). A
// third one ends the process at once, for a step that never asks.
#include "tools/progress.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <unistd.h>
#include <utility>

namespace rzimg {
namespace {

volatile std::sig_atomic_t g_interrupted = 0;

// A third signal is the user's last word: leave at once.
extern "C" void OnInterrupt(int) {
    g_interrupted = g_interrupted + 1;
    if (g_interrupted >= 3) {
        static const char kMessage[] = "\nrzimg: stopped at once\n";
        (void)!write(STDERR_FILENO, kMessage, sizeof kMessage - 1);
        _exit(130);
    }
}

constexpr int kSignals[] = {SIGINT, SIGTERM};
struct sigaction g_previousActions[2];

} // namespace

Progress::Progress(bool show, int steps) : show_(show && isatty(STDERR_FILENO)), steps_(steps > 0 ? steps : 1) {
    if (const char *at = std::getenv("RZIMG_TEST_CANCEL_AT")) cancelAt_ = std::atoi(at);
    if (const char *hook = std::getenv("RZIMG_TEST_SIGNAL")) {
        const std::string h = hook;
        const size_t a = h.find(':'), b = h.find(':', a == std::string::npos ? a : a + 1);
        if (b != std::string::npos) {
            signalStage_ = h.substr(0, a);
            signalAt_ = std::atoi(h.c_str() + a + 1);
            signal_ = h.substr(b + 1) == "TERM" ? SIGTERM : SIGINT;
        }
    }
    struct sigaction action = {};
    action.sa_handler = OnInterrupt;
    sigemptyset(&action.sa_mask);
    for (size_t i = 0; i < 2; ++i) sigaction(kSignals[i], &action, &g_previousActions[i]);
    KrnSetStatusCallback(&Progress::Callback, this, &prevFn_, &prevUser_);
}

Progress::~Progress() {
    clear();
    KrnSetStatusCallback(prevFn_, prevUser_, nullptr, nullptr);
    for (size_t i = 0; i < 2; ++i) sigaction(kSignals[i], &g_previousActions[i], nullptr);
}

bool Progress::cancelled() { return g_interrupted != 0; }

void Progress::begin(int step, const std::string &label, const char *stage) {
    step_ = step;
    label_ = label;
    stage_ = stage;
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
    if (self->signal_ && percent >= self->signalAt_ && self->signalStage_ == self->stage_) {
        const int sig = std::exchange(self->signal_, 0);
        std::raise(sig);
    }
    self->draw((self->step_ * 100 + percent) / self->steps_);
    return g_interrupted ? kCancelStatus : 1;
}

} // namespace rzimg
