/* SPDX-License-Identifier: GPL-2.0 */
/*
 * The ACPI device that carries the parent lines of several combiners. For C,
 * too: the module's alias must name the same device as the driver's match.
 */
#ifndef INTR_DISCOVERY_ACPI_ID_H
#define INTR_DISCOVERY_ACPI_ID_H

#define DRV_INTR_ACPI_ID "NETB0009"

#endif
