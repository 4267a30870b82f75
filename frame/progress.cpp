// Steps are whole units of (end - start) / steps with the remainder carried,
// so the percentages are whole and the last step lands exactly on `end`.
#include "frame/progress.h"

#include <algorithm>

namespace rz {

int32_t BeginDistribution(ProgressState *s, int32_t start, int32_t end, uint32_t steps) {
    s->pfnStatus = KrnGetStatusCallback(&s->pUserData);
    s->nLastResult = 1;
    if (!s->pfnStatus) return 1;
    s->nPercent = start;
    s->nRemainder = 0;
    s->nSteps = steps;
    const uint32_t span = static_cast<uint32_t>(std::max(end - start, 0));
    s->nQuotient = steps ? span / steps : 0;
    s->nQuotientRemainder = steps ? span % steps : 0;
    const int32_t r = s->pfnStatus(start, s->pUserData);
    if (r != 1) s->nLastResult = r;
    return r;
}

int32_t StepDistribution(ProgressState *s) {
    if (!s->pfnStatus || s->nSteps == 0) return 1;
    s->nPercent += static_cast<int32_t>(s->nQuotient);
    s->nRemainder += s->nQuotientRemainder;
    bool report = s->nQuotient != 0;
    if (s->nRemainder >= s->nSteps) {
        s->nRemainder -= s->nSteps;
        s->nPercent += 1;
        report = true;
    }
    if (!report) return 1;
    const int32_t r = s->pfnStatus(s->nPercent, s->pUserData);
    if (r != 1) s->nLastResult = r;
    return r;
}

int32_t StartProgress(ProgressState *s, int32_t start, int32_t end, uint32_t steps) {
    const int32_t r = BeginDistribution(s, start, end, steps);
    if (r != 1 || !s->pfnStatus) return r;
    KrnSetStatusCallback(nullptr, nullptr, nullptr, nullptr);
    return 1;
}

int32_t StartProgress(ProgressState *s) { return StartProgress(s, 0, 100, 100); }

int32_t AdvanceProgress(ProgressState *s, int32_t target) {
    if (!s->pfnStatus) return 1;
    KrnSetStatusCallback(s->pfnStatus, s->pUserData, nullptr, nullptr);
    if (s->nSteps == 0) return 1;
    const int64_t units = static_cast<int64_t>(target - s->nPercent) * s->nSteps / 100;
    if (units > 0) {
        s->nPercent += static_cast<int32_t>(s->nQuotient * units);
        s->nRemainder += static_cast<uint32_t>(s->nQuotientRemainder * units);
    }
    int32_t r = 1;
    if (s->nRemainder >= s->nSteps) {
        s->nPercent += static_cast<int32_t>(s->nRemainder / s->nSteps);
        s->nRemainder %= s->nSteps;
        r = s->pfnStatus(s->nPercent, s->pUserData);
    } else if (s->nQuotient != 0) {
        r = s->pfnStatus(s->nPercent, s->pUserData);
    }
    if (r != 1) {
        s->nLastResult = r;
        return r;
    }
    if (target < 100) KrnSetStatusCallback(nullptr, nullptr, nullptr, nullptr);
    return 1;
}

} // namespace rz
