#!/bin/sh
# SPDX-License-Identifier: GPL-2.0
# Job: everything loaded and configured, and a shell.
. /guest.sh

load_surroundings || exit 1
cat /board/board.tbl >$control/xml_table || exit 1
while read -r line; do
	command cpld "$line" || exit 1
done </board/board.sources
load_driver || exit 1

cat /board/board.txt
cat <<TEXT

The driver is loaded. The control files are in $control; one command:

  . /guest.sh                              the shell's helpers
  command client regist INDEX TYPE         a callback for a leaf
  command cpld pulse NAME                  fire a source; the names: cat /board/board.sources
  cat $control/client_events               what reached the client
  cat $control/log                         what the driver logged
  unload_driver; load_driver               take the driver out and in

Leave with exit.
TEXT
setsid cttyhack sh
exit 0
