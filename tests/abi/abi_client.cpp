// A client of the platform libraries that knows nothing but their
// declarations. It is bound at load time (-z now), so it starts only when the
// libraries export every operation under the name its declaration gives it:
// the unit library's with C++ linkage, the core library's with plain C names.
#include <cstdio>

#include "core_library.h"
#include "unit_library.h"

namespace {

template <typename Function>
const void* AddressOf(Function* function) {
    return reinterpret_cast<const void*>(function);
}

}  // namespace

int main() {
    const void* const operations[] = {
        AddressOf(&VELASystemdListUnits),
        AddressOf(&VELASystemdIsSupportGet),
        AddressOf(&VELASystemdIsDefaultEnableGet),
        AddressOf(&VELASystemdPackedInGet),
        AddressOf(&VELASystemdBelongsToGet),
        AddressOf(&VELASystemdTargetCarriesGet),
        AddressOf(&VELASystemdEnableStatusGetInGenerator),
        AddressOf(&VELASystemdEnableInGenerator),
        AddressOf(&VELASystemdDisableInGenerator),
        AddressOf(&VELA::Systemd::NormalizedUnitNameGet),
        AddressOf(&VELA::Systemd::IsEnableStatusChanged),
        AddressOf(&VELA::Systemd::UnitTypeGet),
        AddressOf(&VELA::Systemd::UnitPathGet),
        AddressOf(&VELA::Systemd::ListServicesWithReason),
        AddressOf(&VELA::Systemd::AddUnitSection),
        AddressOf(&VELA::Systemd::LinkVelaReason),
        AddressOf(&VLIBCErrGet),
        AddressOf(&VLIBCErrorGetFile),
        AddressOf(&VLIBCErrorGetLine),
        AddressOf(&VLIBCProcForkEx),
        AddressOf(&VLIBCExec),
        AddressOf(&VLIBCFileTouch),
    };
    for (const void* operation : operations) {
        if (operation == nullptr) {
            return 1;
        }
    }
    std::printf("%zu platform operations bound\n", sizeof operations / sizeof operations[0]);
    return 0;
}
