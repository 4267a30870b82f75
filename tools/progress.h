// Progress and cancellation for a chain of operations. The kernel's status
// callback is the only channel: it draws a bar on standard error (when that
// is a terminal) and returns a stop value once Ctrl-C has been pressed, which
// the running operation hands back as its status.
#pragma once

#include <rzkrn.h>

#include <string>

namespace rzimg {

// What an operation returns when the callback asked it to stop.
inline constexpr int32_t kCancelStatus = 130;

class Progress {
  public:
    // Installs the SIGINT handler and the status callback; the destructor
    // removes both. The bar is drawn only when `show` and stderr is a tty.
    Progress(bool show, int steps);
    ~Progress();
    Progress(const Progress &) = delete;
    Progress &operator=(const Progress &) = delete;

    void begin(int step, const std::string &label);
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
    std::string label_;
    RZSTATUSCALLBACK prevFn_ = nullptr;
    void *prevUser_ = nullptr;
};

} // namespace rzimg
