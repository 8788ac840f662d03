// Paths and names of the system the preview looks at, named once.
#pragma once

namespace preview {

constexpr const char* PROGRAM_NAME = "vela-generator-preview";
constexpr const char* GENERATOR_NAME = "vela-system-generator";
// Where systemd looks for system generators, in its order.
constexpr const char* GENERATOR_DIRS[] = {"/etc/systemd/system-generators", "/run/systemd/system-generators",
                                          "/usr/local/lib/systemd/system-generators",
                                          "/usr/lib/systemd/system-generators", "/lib/systemd/system-generators"};
// The three directories the service manager hands its generators.
constexpr const char* NORMAL_DIR = "/run/systemd/generator";
constexpr const char* EARLY_DIR = "/run/systemd/generator.early";
constexpr const char* LATE_DIR = "/run/systemd/generator.late";
// The generator's own outputs and the platform's state it touches.
constexpr const char* PACK_CONF_NAME = "vela-pack.conf";
constexpr const char* REASON_CONF_NAME = "vela-reason.conf";
constexpr const char* REASON_CONF_DIR = "/run/velasystemd/reason-conf/";
constexpr const char* CHANGE_MARK_DIR = "/etc/velasystemd/changed/";
constexpr const char* ENABLE_LINK_DIRS[] = {"/etc/systemd/system/", "/run/systemd/system/"};
constexpr const char* UPGRADE_FLAG_DIR = "/run/upgrade-bootup/";
constexpr const char* LEGACY_CONF_DIRS[] = {"/usr/vela/etc/velaservice.override", "/usr/vela/etc/velaservice.d"};
constexpr const char* UPGRADE_MARKERS[] = {"/var/.UpgradeBootup", "/.old_patch_info/VERSION"};
constexpr const char* SERVICE_MIGRATE_BIN = "/usr/vela/sbin/velaservicemigrate";
constexpr const char* CONFIG_UPDATE_SCRIPT = "/usr/vela/lib/systemd/scripts/nxo-configupdate.sh";
constexpr const char* MASK_TARGET = "/dev/null";
// Where the temporary directory lives: tmpfs, gone at the next boot at worst.
constexpr const char* TEMP_TEMPLATE = "/dev/shm/vela-preview.XXXXXX";
// systemd's own limit for a generator run.
constexpr int DEFAULT_TIMEOUT_SECONDS = 90;
// File contents are kept up to this size; larger files are shown by size.
constexpr long MAX_SHOWN_FILE = 64 * 1024;
// The exit status of a child whose program could not be executed, as the
// shell has it, and the prefix of the message it leaves.
constexpr int EXEC_FAILED = 127;
constexpr const char* CANNOT_RUN = "cannot run ";
// Exit statuses: the generator failed (or --strict found something), or the
// preview itself could not run.
constexpr int EXIT_GENERATOR_FAILED = 1;
constexpr int EXIT_CANNOT_RUN = 2;
constexpr int EXIT_INTERRUPTED = 130;
constexpr const char* SANDBOX_PATH = "/usr/sbin:/usr/bin:/sbin:/bin";

}  // namespace preview
