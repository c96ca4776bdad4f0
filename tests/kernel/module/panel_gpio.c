// SPDX-License-Identifier: GPL-2.0
/*
 * A GPIO controller whose hardware is a process: each operation on a line is
 * sent to the socket that the parameter names as a file descriptor, as the
 * line's offset and the level to drive or another action, and waits for its
 * result: the level that was read, else 0.
 *
 * The waits cannot be interrupted, as those of a controller on a slow bus: a
 * process that is killed dies when its operation is over.
 */
#include <linux/delay.h>
#include <linux/file.h>
#include <linux/fs.h>
#include <linux/gpio/driver.h>
#include <linux/module.h>
#include <linux/mutex.h>

enum { MAKE_INPUT = 2, GET = 3 };	/* 0 and 1 are levels */

static int descriptor;
module_param(descriptor, int, 0);

static struct file *board;
static DEFINE_MUTEX(asking);	/* one operation at a time */

static int ask(u8 line, u8 action)
{
	u8 data[] = { line, action };

	mutex_lock(&asking);
	kernel_write(board, data, sizeof(data), NULL);
	while (kernel_read(board, data, 1, NULL) == -ERESTARTSYS)
		msleep(1);
	mutex_unlock(&asking);
	return data[0];
}

static int panel_direction_input(struct gpio_chip *chip, unsigned int line)
{
	return ask(line, MAKE_INPUT);
}

static int panel_direction_output(struct gpio_chip *chip, unsigned int line, int level)
{
	return ask(line, level);
}

static int panel_get(struct gpio_chip *chip, unsigned int line)
{
	return ask(line, GET);
}

static void panel_set(struct gpio_chip *chip, unsigned int line, int level)
{
	ask(line, level);
}

static struct gpio_chip chip = {
	.label = "panel-gpio",
	.base = 0,
	.ngpio = 64,
	.can_sleep = true,
	.direction_input = panel_direction_input,
	.direction_output = panel_direction_output,
	.get = panel_get,
	.set = panel_set,
};

static int __init panel_init(void)
{
	board = fget(descriptor);
	return board ? gpiochip_add_data(&chip, NULL) : -EBADF;
}
module_init(panel_init);

MODULE_LICENSE("GPL");
