#!/bin/sh
# SPDX-License-Identifier: GPL-2.0
# Job: everything loaded and configured, and a shell.
. /guest.sh

load_surroundings || exit 1
dd if=/board/board.tbl of=$control/xml_table bs=1M 2>/dev/null || exit 1
while read -r line; do
	ctl cpld "$line" >/dev/null || exit 1
done </board/board.sources
load_driver || exit 1

cat /board/board.txt
cat <<TEXT

The driver is loaded. Things to try:

  ctl client regist INDEX TYPE     a callback for a leaf
  ctl cpld pulse NAME              fire a source; their names: cat /board/board.sources
  cat $control/client_events     what reached the client
  cat $control/log               what the driver logged
  unload_driver; load_driver       take the driver out and in

All control files are in $control. Leave with exit.
TEXT
ENV=/guest.sh setsid cttyhack sh
exit 0
