#!/bin/sh
# SPDX-License-Identifier: GPL-2.0
# Job: everything loaded and configured, and a shell.
. /guest.sh

# configure NAME: what the compiler made of an XML, and its sources on the CPLD.
configure()
{
	local line
	dd if="/board/$1.tbl" of=$control/xml_table bs=1M 2>/dev/null || return 1
	while read -r line; do
		ctl cpld "$line" >/dev/null || return 1
	done <"/board/$1.sources"
}

load_surroundings || exit 1
configure board || exit 1
configure card || exit 1
load_driver || exit 1

cat /board/board.txt
cat <<TEXT

The driver is loaded. Things to try:

  ctl client regist INDEX TYPE     a callback for a leaf
  ctl cpld pulse NAME              fire a source; their names: cat /board/board.sources
  cat $control/client_events     what reached the client
  cat $control/log               what the driver logged
  unload_driver; load_driver       take the driver out and in

and as a program in user space does it, over /dev/intr:

  intrctl watch INDEX TYPE &       print each occurrence of a leaf; then ctl cpld pulse NAME
  intrctl card up 0x03000000       plug the card; its sources: cat /board/card.sources
  intrctl report cfg               combiners and leaves as configured; also: runtime, switch
  intrctl debug on                 say more in the log
  intrctl --help                   the other commands

All control files are in $control, the driver's own ones in $control/intr. Leave
with exit.
TEXT
ENV=/guest.sh setsid cttyhack sh
exit 0
