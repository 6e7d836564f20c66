/* SPDX-License-Identifier: GPL-2.0 */
/*
 * The virtual board where the firmware describes the machine by ACPI: one device
 * whose interrupts are the combiners' parent lines, in the order of the
 * combiners. Line N of the board is shared peripheral interrupt 100 + N, and
 * ACPI counts these from 32 on.
 */
DefinitionBlock ("board.aml", "SSDT", 2, "INTR", "BOARD", 0x00000001)
{
	Scope (\_SB)
	{
		Device (CMB0)
		{
			Name (_HID, "NETB0009")
			Name (_UID, Zero)
			Name (_CRS, ResourceTemplate ()
			{
				Interrupt (ResourceConsumer, Level, ActiveHigh, Exclusive) { 132 }
				Interrupt (ResourceConsumer, Level, ActiveHigh, Exclusive) { 133 }
				Interrupt (ResourceConsumer, Level, ActiveHigh, Exclusive) { 134 }
			})
		}
	}
}
