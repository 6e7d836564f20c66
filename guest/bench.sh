#!/bin/sh
# SPDX-License-Identifier: GPL-2.0
# Job: the ledger. /bench-cases says which cases; the rest of the driver's surroundings
# the program loads by itself.
. /guest.sh

siblings="intr_strings intr_diag intr_log intr_xml"

load $siblings || exit 1
/intr-bench $(cat /bench-cases) || exit 1
unload intr_xml intr_log intr_diag intr_strings
