// The constants live in this one file so that they are made in a fixed order
// (the map first) and destroyed in the reverse order.
#include "constants.h"

const std::map<std::string, std::set<std::string>> LegacyServiceMap = {
    {"ntpd-client", {"ntpd"}},
    {"ntpd-server", {"ntpd"}},
    {"nfsd", {"nfs-server"}},
    {"ftpd", {"ftpd"}},
    {"ftpd-ssl", {"ftpd"}},
    {"ssh-shell", {"sshd"}},
    {"sftp", {"sshd"}},
    {"telnetd", {"inetd"}},
    {"cups-lpd", {"inetd"}},
    {"ddns", {"ddnsd"}},
    {"heartbeat", {"heartbeatd"}},
    {"support-remote-access", {"velarelayd"}},
};

const std::string SYSTEMCTL_BIN = "/usr/vela/bin/velasystemctl";
const std::string CHECK_SERVICE_REASON = "check-service-reason";
const std::string REASON_CONF_DIR = "/run/velasystemd/reason-conf/";
const std::string REASON_CONF_NAME = "vela-reason.conf";
const std::string PACK_CONF_NAME = "vela-pack.conf";
const std::string SECTION_UNIT = "Unit";
const std::string SECTION_SERVICE = "Service";
const std::string KEY_EXEC_START_PRE = "ExecStartPre";
const std::string KEY_PART_OF = "PartOf";
const std::string KEY_RELOAD_PROPAGATED_FROM = "ReloadPropagatedFrom";
const std::string SERVICE_OVERRIDE_DIR = "/usr/vela/etc/velaservice.override/";
const std::string SERVICE_CONF_DIR = "/usr/vela/etc/velaservice.d/";
const std::string KEY_AUTO_START = "auto_start";
const std::string PKGCTL_PREFIX = "pkgctl-";

const std::string UPGRADE_BOOT_MARKER = "/var/.UpgradeBootup";
const std::string OLD_PATCH_VERSION_FILE = "/.old_patch_info/VERSION";
const std::string UPGRADE_FLAG_DIR = "/run/upgrade-bootup/";
const std::string SERVICE_MIGRATE_BIN = "/usr/vela/sbin/velaservicemigrate";
const std::string CONFIG_UPDATE_SCRIPT = "/usr/vela/lib/systemd/scripts/nxo-configupdate.sh";
