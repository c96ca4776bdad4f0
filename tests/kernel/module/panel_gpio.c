// SPDX-License-Identifier: GPL-2.0
/*
 * A GPIO controller whose hardware is a process: each operation on a line waits
 * until the process that has /dev/panel-gpio open has read it and has written
 * its result, an int: the level that was read, else 0.
 *
 * The waits cannot be interrupted, as those of a controller on a slow bus: a
 * process that is killed dies when its operation is over.
 */
#include <linux/completion.h>
#include <linux/fs.h>
#include <linux/gpio/driver.h>
#include <linux/miscdevice.h>
#include <linux/module.h>
#include <linux/mutex.h>
#include <linux/uaccess.h>

static DEFINE_MUTEX(asking);	/* one operation at a time */
static DECLARE_COMPLETION(asked);
static DECLARE_COMPLETION(answered);
static u8 operation[3];		/* letter, offset of the line, level */
static int result;

static int ask(char letter, unsigned int line, int level)
{
	int answer;

	mutex_lock(&asking);
	operation[0] = letter;
	operation[1] = line;
	operation[2] = level;
	complete(&asked);
	wait_for_completion(&answered);
	answer = result;
	mutex_unlock(&asking);
	return answer;
}

static int panel_direction_input(struct gpio_chip *chip, unsigned int line)
{
	return ask('i', line, 0);
}

static int panel_direction_output(struct gpio_chip *chip, unsigned int line, int level)
{
	return ask('o', line, level);
}

static int panel_get(struct gpio_chip *chip, unsigned int line)
{
	return ask('g', line, 0);
}

static void panel_set(struct gpio_chip *chip, unsigned int line, int level)
{
	ask('s', line, level);
}

static struct gpio_chip chip = {
	.label = "panel-gpio",
	.owner = THIS_MODULE,
	.base = 0,
	.ngpio = 64,
	.can_sleep = true,
	.direction_input = panel_direction_input,
	.direction_output = panel_direction_output,
	.get = panel_get,
	.set = panel_set,
};

static ssize_t panel_read(struct file *file, char __user *buffer, size_t size, loff_t *position)
{
	if (wait_for_completion_interruptible(&asked))
		return -EINTR;
	return copy_to_user(buffer, operation, sizeof(operation)) ? -EFAULT : sizeof(operation);
}

static ssize_t panel_write(struct file *file, const char __user *buffer, size_t size, loff_t *position)
{
	if (copy_from_user(&result, buffer, sizeof(result)))
		return -EFAULT;
	complete(&answered);
	return sizeof(result);
}

static const struct file_operations panel_files = {
	.owner = THIS_MODULE,
	.read = panel_read,
	.write = panel_write,
};

static struct miscdevice panel_device = {
	.minor = MISC_DYNAMIC_MINOR,
	.name = "panel-gpio",
	.fops = &panel_files,
};

static int __init panel_init(void)
{
	return misc_register(&panel_device) ?: gpiochip_add_data(&chip, NULL);
}
module_init(panel_init);

MODULE_LICENSE("GPL");
MODULE_DESCRIPTION("GPIO controller that a process answers for");
