// Services with a reason run the platform's reason check before they start.
// One shared drop-in holds the check, with the unit-name specifier left for
// the service manager to expand, and is linked into each service's drop-in
// directory, one child process per service.
#include <malloc.h>
#include <unistd.h>

#include <map>
#include <vector>

#include "constants.h"
#include "log.h"
#include "platform_errors.h"
#include "process.h"
#include "tasks.h"
#include "unit_library.h"
#include "unit_paths.h"

namespace {

// Expanded by the service manager to the name of the unit being started.
const std::string UNIT_NAME_SPECIFIER = "%n";

std::string CheckCommand() {
    return SYSTEMCTL_BIN + " " + CHECK_SERVICE_REASON + " " + UNIT_NAME_SPECIFIER;
}

// Writes the shared reason drop-in afresh. It is removed first so that what an
// earlier run left is never carried on. Returns false after logging.
bool WriteReasonDropIn(const std::string& checkCommand, const std::string& reasonFile) {
    (void)unlink(reasonFile.c_str());
    const std::map<std::string, std::string> settings = {{KEY_EXEC_START_PRE, checkCommand}};
    if (!VELA::Systemd::AddUnitSection(REASON_CONF_DIR, REASON_CONF_NAME, SECTION_SERVICE, settings)) {
        VLOG("Fail to create [%s].", reasonFile.c_str());
        return false;
    }
    return true;
}

}  // namespace

void AddReasonDropIns(const std::string& dir) {
    std::vector<std::string> services;
    if (!VELA::Systemd::ListServicesWithReason(services)) {
        const ErrorState error = ReadErrorState();
        VLOG("Fail to list service units.[0x%04X %s:%d]", error.code, error.file, error.line);
        return;
    }
    const std::string checkCommand = CheckCommand();
    const std::string reasonFile = REASON_CONF_DIR + REASON_CONF_NAME;
    if (!WriteReasonDropIn(checkCommand, reasonFile)) {
        return;
    }
    // The drop-in is complete before the first link to it is made. A service
    // whose child cannot be made stays unlinked until the next run. Memory
    // freed so far goes back to the system first: each page this process
    // still holds is one more that every fork copies and every exit tears down.
    (void)malloc_trim(0);
    for (const std::string& service : services) {
        const std::string dropInDir = DropInDirOf(dir, service);
        (void)RunInChild([&dropInDir, &reasonFile] {
            (void)VELA::Systemd::LinkVelaReason(dropInDir, reasonFile);
        });
    }
    ReapChildren();
}
