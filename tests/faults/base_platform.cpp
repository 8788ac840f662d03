#include "base_platform.h"

#include <algorithm>

namespace faults {

using sandbox::Dir;
using sandbox::File;
using sandbox::Link;

const char* const DRIVER = "vela-system-generator.cpp";
const char* const MASKING = "mask_unsupported_units.cpp";
const char* const DEFAULTS = "default_enablement.cpp";
const char* const STAY_ALIVE = "stay_alive_links.cpp";
const char* const PACKING = "pack_drop_ins.cpp";
const char* const WANTS = "wants_link_writer.cpp";
const char* const REASONS = "reason_drop_ins.cpp";
const char* const UPGRADE = "upgrade_boot.cpp";

const std::string REASON_FILE = "/run/velasystemd/reason-conf/vela-reason.conf";
const std::string UNIT_DIR = "/usr/lib/systemd/system/";

const char* const BASE_SCRIPT = R"({
    "units": ["a.service", "b.service", "c.service", "x.target"],
    "support": {"a.service": false, "b.service": true, "c.service": true, "x.target": true},
    "default_enable": {"a.service": false, "b.service": true},
    "belongs_to": {"a.service": ["x.target"], "b.service": []},
    "target_carries": {"x.target": ["c.service"]},
    "packed_in": {"a.service": [], "b.service": ["y.target", "x.target", "y.target"]},
    "enable_status": {"a.service": 1, "b.service": 1, "c.service": 2},
    "services_with_reason": ["a.service", "b.service"]
})";

const char* const ENABLE_B = "VELASystemdEnableInGenerator(b.service)";
const std::vector<std::string> ENABLING = {"VELASystemdEnableInGenerator", "VELASystemdDisableInGenerator",
                                           "VLIBCExec"};
const std::vector<std::string> NOTHING = {EARLY_OUT, NORMAL_OUT, REASON_OUT};

std::string Early(const std::string& path) { return std::string(EARLY_OUT) + "/" + path; }
std::string Normal(const std::string& path) { return std::string(NORMAL_OUT) + "/" + path; }

sandbox::TreeSnapshot BaseOutput() {
    const std::string pack = "x.target y.target";
    return {
        {Early("a.service"), Link("/dev/null")},
        {Early("a.service.d"), Dir()},
        {Early("a.service.d/vela-reason.conf"), Link(REASON_FILE)},
        {Early("b.service.d"), Dir()},
        {Early("b.service.d/vela-reason.conf"), Link(REASON_FILE)},
        {"run/velasystemd", Dir()},
        {"run/velasystemd/reason-conf", Dir()},
        {"run/velasystemd/reason-conf/vela-reason.conf",
         File("[Service]\nExecStartPre=/usr/vela/bin/velasystemctl check-service-reason %n\n")},
        {Normal("b.service.d"), Dir()},
        {Normal("b.service.d/vela-pack.conf"),
         File("[Unit]\nPartOf=" + pack + "\nReloadPropagatedFrom=" + pack + "\n")},
        {Normal("x.target.wants"), Dir()},
        {Normal("x.target.wants/a.service"), Link(UNIT_DIR + "a.service")},
        {Normal("x.target.wants/b.service"), Link(UNIT_DIR + "b.service")},
        {Normal("x.target.wants/c.service"), Link(UNIT_DIR + "c.service")},
        {Normal("y.target.wants"), Dir()},
        {Normal("y.target.wants/b.service"), Link(UNIT_DIR + "b.service")},
    };
}

void PrepareBasePlatform(sandbox::Sandbox& box) {
    box.WriteFile(REASON_FILE, "[Service]\nExecStartPre=/bin/false\n");
}

sandbox::TreeSnapshot Union(sandbox::TreeSnapshot tree, const sandbox::TreeSnapshot& more) {
    for (const auto& [path, entry] : more) {
        tree[path] = entry;
    }
    return tree;
}

std::vector<Message> Sorted(std::vector<Message> messages) {
    std::sort(messages.begin(), messages.end());
    return messages;
}

}  // namespace faults
