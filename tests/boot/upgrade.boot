# The first boot after an upgrade (examples/upgrade/): the checks of
# boot_test.sh, in order, "KIND ARG..." a line.

system running
# The legacy settings enabled ntpd and disabled sshd and ftpd.
running ntpd.service nfs-server.service
stopped sshd.service ftpd.service
# The migration programs ran once, and a reload runs none of them again.
program velaservicemigrate --all
program nxo-configupdate.sh init_conf_migrate_upstart_to_systemd
program nxo-configupdate.sh init_conf_migrate_systemd_to_systemd
daemon-reload
program velaservicemigrate --all
program nxo-configupdate.sh init_conf_migrate_upstart_to_systemd
program nxo-configupdate.sh init_conf_migrate_systemd_to_systemd
# Now enabled, ntpd stays alive for maintenance.
isolate vela-maintenance.target ntpd.service vela-api.service vela-led.service
logged Fail to get [vela-console.service] enable status.
quiet
