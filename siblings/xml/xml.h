/* SPDX-License-Identifier: GPL-2.0 */
/*
 * Start and stop of the XML configuration module. Process context.
 * The lookups that it exports are declared in intr/siblings.h.
 */
#ifndef XML_XML_H
#define XML_XML_H

#ifdef __cplusplus
extern "C" {
#endif

/* Registers the control files "xml" and "xml_table". Return: 0 or -errno, nothing left behind. */
int xml_start(void);

/* Removes the control files and forgets every table. */
void xml_stop(void);

#ifdef __cplusplus
}
#endif

#endif
