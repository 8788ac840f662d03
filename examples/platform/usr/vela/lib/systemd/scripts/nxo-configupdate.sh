#!/bin/sh
# Stand-in for the platform's configuration-update script: it only records
# which conversion it was asked for, in /var/log/vela-migration.log.
PATH=/usr/sbin:/usr/bin:/sbin:/bin
mkdir -p /var/log
echo "nxo-configupdate.sh $*" >>/var/log/vela-migration.log
