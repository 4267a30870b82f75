// Progress for operations without a row context: the same distribution of
// a percentage range over steps, with the kernel's own callback silenced in
// between so that nested kernel work does not report.
#pragma once

#include <rzkrn.h>

namespace rz {

struct ProgressState {
    RZSTATUSCALLBACK pfnStatus = nullptr;
    void *pUserData = nullptr;
    int32_t nPercent = 0;
    uint32_t nRemainder = 0;
    uint32_t nQuotient = 0;
    uint32_t nQuotientRemainder = 0;
    uint32_t nSteps = 0;
    int32_t nLastResult = 1;
};

// Fetches the callback, spreads (end - start) over `steps` and reports
// `start`; the row context's progress is this too.
int32_t BeginDistribution(ProgressState *state, int32_t start, int32_t end, uint32_t steps);
// One of `steps`: reports when a whole percent was reached.
int32_t StepDistribution(ProgressState *state);

int32_t StartProgress(ProgressState *state, int32_t start, int32_t end, uint32_t steps);
int32_t StartProgress(ProgressState *state);
int32_t AdvanceProgress(ProgressState *state, int32_t target);

// Puts the caller's callback back in the kernel if the state silenced it.
class ProgressScope {
  public:
    ProgressScope() = default;
    ~ProgressScope() { finish(); }
    ProgressState *operator->() { return &state_; }
    ProgressState *get() { return &state_; }
    void finish() {
        if (state_.pfnStatus) KrnSetStatusCallback(state_.pfnStatus, state_.pUserData, nullptr, nullptr);
    }
    ProgressScope(const ProgressScope &) = delete;
    ProgressScope &operator=(const ProgressScope &) = delete;

  private:
    ProgressState state_;
};

} // namespace rz
