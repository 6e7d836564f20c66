#!/bin/sh
# SPDX-License-Identifier: GPL-2.0
# Job: the scenario suite.
. /guest.sh

load_surroundings || exit 1
/scenarios --gtest_color=no
code=$?
unload_surroundings || exit 1
exit $code
