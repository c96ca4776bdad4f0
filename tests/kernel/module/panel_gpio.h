/* SPDX-License-Identifier: GPL-2.0 */
/*
 * What goes through /dev/panel-gpio: a process reads one request after the
 * other, and writes a reply to each before it reads the next one.
 */
#ifndef PANEL_GPIO_H
#define PANEL_GPIO_H

#include <linux/types.h>

enum panel_gpio_operation {
	PANEL_GPIO_GET_DIRECTION,	/* value: 1 = input, 0 = output */
	PANEL_GPIO_MAKE_INPUT,
	PANEL_GPIO_MAKE_OUTPUT,		/* at the request's value */
	PANEL_GPIO_GET,
	PANEL_GPIO_SET
};

struct panel_gpio_request {
	__u32 sequence;
	__u32 operation;	/* enum panel_gpio_operation */
	__u32 offset;		/* of the line, from the first one */
	__u32 value;		/* electrical level, 0 or 1 */
};

struct panel_gpio_reply {
	__u32 sequence;		/* of the request */
	__u32 error;		/* as in errno; 0 when it was done */
	__u32 value;		/* 0 or 1 */
};

#endif
