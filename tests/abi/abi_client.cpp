// A client of the platform libraries that knows nothing but their declarations.
// Bound at load time (-z now), it starts only when the libraries export every
// operation under its declared name: the unit library's with C++ linkage, the
// core library's with plain C names. Then it asks the name rules and
// UnitPathGet's exception through the shared library.
#include <cstdio>
#include <stdexcept>

#include "core_library.h"
#include "unit_library.h"

template <typename... Operation>
bool AllBound(Operation*... operations) {
    return ((operations != nullptr) && ...);
}

int main() {
    if (!AllBound(&VELASystemdListUnits, &VELASystemdIsSupportGet, &VELASystemdIsDefaultEnableGet,
                  &VELASystemdPackedInGet, &VELASystemdBelongsToGet, &VELASystemdTargetCarriesGet,
                  &VELASystemdEnableStatusGetInGenerator, &VELASystemdEnableInGenerator,
                  &VELASystemdDisableInGenerator, &VELA::Systemd::IsEnableStatusChanged,
                  &VELA::Systemd::ListServicesWithReason, &VELA::Systemd::AddUnitSection,
                  &VELA::Systemd::LinkVelaReason, &VLIBCErrGet, &VLIBCErrorGetFile, &VLIBCErrorGetLine,
                  &VLIBCProcForkEx, &VLIBCExec, &VLIBCFileTouch)) {
        return 1;
    }
    if (VELA::Systemd::NormalizedUnitNameGet("ntpd") != "ntpd.service" ||
        VELA::Systemd::UnitTypeGet("a.b.target") != "target") {
        return 2;
    }
    try {
        VELA::Systemd::UnitPathGet("no-such-unit-anywhere.service");
        return 3;
    } catch (const std::runtime_error&) {
    }
    std::puts("every platform operation bound and answering");
    return 0;
}
