// Progress and cancellation for a run: loading, a chain of operations,
// saving. The kernel's status callback is the only channel (the file
// library reports through it too): it draws a bar on standard error (when
// that is a terminal) and returns a stop value once Ctrl-C or SIGTERM has
// come, which the running load, operation or save hands back as its status.
#pragma once

#include <rzkrn.h>

#include <string>

namespace rzimg {

// What an operation returns when the callback asked it to stop.
inline constexpr int32_t kCancelStatus = 130;

class Progress {
  public:
    // Installs the SIGINT and SIGTERM handlers and the status callback; the
    // destructor removes them. The bar is drawn only when `show` and stderr
    // is a tty.
    Progress(bool show, int steps);
    ~Progress();
    Progress(const Progress &) = delete;
    Progress &operator=(const Progress &) = delete;

    // stage names the part of the run for the test hook: load, op or save.
    void begin(int step, const std::string &label, const char *stage = "op");
    void clear();
    // True once Ctrl-C (or the test hook) asked to stop.
    static bool cancelled();

  private:
    static int32_t RZAPI Callback(int32_t percent, void *user);
    void draw(int overall);

    bool show_;
    int steps_;
    int step_ = 0;
    int drawn_ = -1;
    int cancelAt_ = -1; // RZIMG_TEST_CANCEL_AT: behave as if Ctrl-C came at this percentage
    // RZIMG_TEST_SIGNAL=stage:percent:INT|TERM raises that signal once, at
    // that percentage of that stage.
    std::string signalStage_;
    int signalAt_ = -1, signal_ = 0;
    const char *stage_ = "op";
    std::string label_;
    RZSTATUSCALLBACK prevFn_ = nullptr;
    void *prevUser_ = nullptr;
};

} // namespace rzimg
