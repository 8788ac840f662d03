# An ordinary boot of the example platform: the checks of boot_test.sh, in
# order, "KIND ARG..." a line.

system running
# The generator ran at boot: masks, wants links and drop-ins.
generated /run/systemd/generator.early/wifi-ap.service
generated /run/systemd/generator.early/iscsi-target.service
generated /run/systemd/generator.early/smbd.service.d/vela-reason.conf
generated /run/systemd/generator/nfs-server.service.d/vela-pack.conf
generated /run/systemd/generator/vela-maintenance.target.wants/vela-api.service
# Enabled (in the image or by default), or static and wanted by an enabled
# target. heartbeatd is on by default, but its change mark keeps it off; the
# web API starts on its first connection.
running sshd.service ftpd.service nfs-server.service smbd.service vela-volume@data.service vela-led.service vela-api.socket
stopped heartbeatd.service ntpd.service vela-upsd.service vela-api.service
masked wifi-ap.service
masked iscsi-target.service
# TARGET UNIT...: the units packed in TARGET.
packed vela-net.target ftpd.service nfs-server.service
packed vela-storage.target nfs-server.service smbd.service
# TARGET UNIT: a reload of TARGET reloads UNIT.
reload vela-net.target nfs-server.service
reload vela-storage.target nfs-server.service
# UNIT TARGET OTHER...: the check fails for UNIT; TARGET starts the others.
reason smbd.service vela-storage.target nfs-server.service vela-volume@data.service
# TARGET UNIT...: exactly these of the platform's services run after it.
isolate vela-maintenance.target vela-api.service vela-led.service
isolate vela-recovery.target vela-led.service
# At boot the generator's lines are lost; on a reload they reach the journal.
daemon-reload
logged Fail to get [vela-console.service] enable status.
quiet
