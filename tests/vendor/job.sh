#!/bin/sh
# SPDX-License-Identifier: GPL-2.0
# Job: the driver between modules that were built elsewhere.
. /guest.sh

fail()
{
	echo "vendor: $*"
	dmesg | tail -n 40
	exit 1
}

# A sibling with another prototype must be refused, with the kernel's reason.
load vendor_siblings vendor_cpld_odd || fail "the vendor's modules do not load"
insmod $modules/intr.ko 2>/dev/null && fail "intr.ko loads over a sibling that does not fit"
dmesg | grep -q 'intr: disagrees about version of symbol drv_cpld_read' ||
	fail "intr.ko was refused for another reason"
unload vendor_cpld_odd || fail "vendor_cpld_odd does not unload"

load vendor_cpld intr || fail "intr.ko does not load over the vendor's modules"
[ -d /sys/module/intr ] || fail "there is no /sys/module/intr"
load vendor_client || fail "the vendor's client fails"
dmesg | grep -q 'vendor client: ok' || fail "the vendor's client says nothing"
rmmod intr 2>/dev/null && fail "intr.ko unloads under its client"
unload vendor_client intr vendor_cpld vendor_siblings || fail "the modules do not unload"
[ ! -e /sys/module/intr ] || fail "/sys/module/intr stays"
echo "vendor: ok"
