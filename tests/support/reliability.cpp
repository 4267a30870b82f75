#include "support/reliability.h"

namespace rz::test {

std::vector<ReliabilityCase> &ReliabilityCases() {
    static std::vector<ReliabilityCase> cases;
    return cases;
}

ReliabilityRegistrar::ReliabilityRegistrar(const char *name, OpCall call, int32_t nullStatus,
                                           std::vector<int32_t> failureStatuses, int32_t width, int32_t height) {
    ReliabilityCase c;
    c.name = name;
    c.call = std::move(call);
    c.flags = RZ_OPF_CUSTOM;
    c.nullStatus = nullStatus;
    c.failureStatuses = std::move(failureStatuses);
    c.width = width;
    c.height = height;
    ReliabilityCases().push_back(std::move(c));
}

} // namespace rz::test
