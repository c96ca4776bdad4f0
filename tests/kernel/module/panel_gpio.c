// SPDX-License-Identifier: GPL-2.0
/*
 * A GPIO controller whose hardware is a process: each operation on a line is a
 * request that waits until the process that has /dev/panel-gpio open has read
 * it and written its reply. Nothing is cached.
 *
 * A request that is not replied to is never taken for done. It fails, it is
 * counted in the parameter "missed", and from then on every operation fails,
 * until 0 is written to that parameter: gpiolib's set operation cannot report
 * an error, so that a level may be wrong.
 *
 * Waits cannot be interrupted, as those of a controller on a slow bus: a
 * process that is killed dies when its operation is over. Hence no request is
 * given up half-way as long as it is replied to.
 */
#define pr_fmt(fmt) KBUILD_MODNAME ": " fmt

#include <linux/err.h>
#include <linux/fs.h>
#include <linux/gpio/consumer.h>
#include <linux/gpio/driver.h>
#include <linux/gpio/machine.h>
#include <linux/jiffies.h>
#include <linux/miscdevice.h>
#include <linux/module.h>
#include <linux/mutex.h>
#include <linux/poll.h>
#include <linux/spinlock.h>
#include <linux/uaccess.h>
#include <linux/wait.h>

#include "panel_gpio.h"

static ushort lines = 64;
module_param(lines, ushort, 0444);
MODULE_PARM_DESC(lines, "Number of lines");

static int held = -1;
module_param(held, int, 0444);
MODULE_PARM_DESC(held, "Offset of a line that the module takes for itself; none when negative");

static uint timeout_ms = 10000;
module_param(timeout_ms, uint, 0644);
MODULE_PARM_DESC(timeout_ms, "Time in which a request has to be replied to");

static uint missed;
module_param(missed, uint, 0644);
MODULE_PARM_DESC(missed, "Number of requests without a reply, and of levels refused; unless 0, all operations fail");

enum state { IDLE, ASKED, TAKEN, ANSWERED };

static DEFINE_MUTEX(asking);		/* one request at a time */
static DEFINE_SPINLOCK(lock);		/* for all that follows */
static DECLARE_WAIT_QUEUE_HEAD(news);
static bool served;			/* whether a process has the device open */
static enum state state;
static struct panel_gpio_request request;
static struct panel_gpio_reply reply;

static bool registered;
static struct gpio_desc *held_line;

static bool is_settled(void)
{
	bool settled;

	spin_lock(&lock);
	settled = state == ANSWERED || !served;
	spin_unlock(&lock);
	return settled;
}

static int take_reply(void)
{
	int result;

	spin_lock(&lock);
	if (state == ANSWERED)
		result = reply.error ? -(int)reply.error : (int)reply.value;
	else
		result = served ? -ETIMEDOUT : -EIO;
	/* gpiolib hears of neither when a level is to be set. */
	if (state != ANSWERED || (request.operation == PANEL_GPIO_SET && reply.error))
		missed++;
	state = IDLE;
	spin_unlock(&lock);
	return result;
}

/* Returns the level that was replied, or an error. */
static int ask(enum panel_gpio_operation operation, unsigned int offset, int value)
{
	int result = -EIO;

	mutex_lock(&asking);
	if (!missed) {
		spin_lock(&lock);
		request.sequence++;
		request.operation = operation;
		request.offset = offset;
		request.value = !!value;
		state = ASKED;
		spin_unlock(&lock);
		wake_up(&news);
		wait_event_timeout(news, is_settled(), msecs_to_jiffies(timeout_ms));
		result = take_reply();
		if (missed)
			pr_err("line %u: operation %d was not done\n", offset, operation);
	}
	mutex_unlock(&asking);
	return result;
}

static int panel_get_direction(struct gpio_chip *chip, unsigned int offset)
{
	/* gpiolib asks while the chip is registered, when there is nobody to reply yet. */
	return registered ? ask(PANEL_GPIO_GET_DIRECTION, offset, 0) : GPIO_LINE_DIRECTION_IN;
}

static int panel_direction_input(struct gpio_chip *chip, unsigned int offset)
{
	int result = ask(PANEL_GPIO_MAKE_INPUT, offset, 0);

	return min(result, 0);
}

static int panel_direction_output(struct gpio_chip *chip, unsigned int offset, int value)
{
	int result = ask(PANEL_GPIO_MAKE_OUTPUT, offset, value);

	return min(result, 0);
}

static int panel_get(struct gpio_chip *chip, unsigned int offset)
{
	return ask(PANEL_GPIO_GET, offset, 0);
}

static void panel_set(struct gpio_chip *chip, unsigned int offset, int value)
{
	int result = ask(PANEL_GPIO_SET, offset, value);

	if (result < 0)
		pr_err("line %u did not take its level: error %d\n", offset, result);
}

static struct gpio_chip chip = {
	.label = "panel-gpio",
	.owner = THIS_MODULE,
	.base = -1,
	.can_sleep = true,
	.get_direction = panel_get_direction,
	.direction_input = panel_direction_input,
	.direction_output = panel_direction_output,
	.get = panel_get,
	.set = panel_set,
};

static int panel_open(struct inode *inode, struct file *file)
{
	int result = 0;

	spin_lock(&lock);
	if (served)
		result = -EBUSY;
	served = true;
	spin_unlock(&lock);
	return result ? result : stream_open(inode, file);
}

static int panel_release(struct inode *inode, struct file *file)
{
	spin_lock(&lock);
	served = false;
	spin_unlock(&lock);
	wake_up(&news);
	return 0;
}

/* Returns whether there was a request that nobody has read. */
static bool take_request(struct panel_gpio_request *taken)
{
	bool is_there;

	spin_lock(&lock);
	is_there = state == ASKED;
	if (is_there) {
		*taken = request;
		state = TAKEN;
	}
	spin_unlock(&lock);
	return is_there;
}

static ssize_t panel_read(struct file *file, char __user *buffer, size_t size, loff_t *position)
{
	struct panel_gpio_request taken;

	if (size != sizeof(taken))
		return -EINVAL;
	while (!take_request(&taken)) {
		if (file->f_flags & O_NONBLOCK)
			return -EAGAIN;
		if (wait_event_interruptible(news, READ_ONCE(state) == ASKED))
			return -ERESTARTSYS;
	}
	return copy_to_user(buffer, &taken, sizeof(taken)) ? -EFAULT : sizeof(taken);
}

static ssize_t panel_write(struct file *file, const char __user *buffer, size_t size, loff_t *position)
{
	struct panel_gpio_reply given;

	if (size != sizeof(given))
		return -EINVAL;
	if (copy_from_user(&given, buffer, sizeof(given)))
		return -EFAULT;
	if (given.error > MAX_ERRNO || given.value > 1)
		return -EINVAL;
	spin_lock(&lock);
	/* A reply that comes too late is for a request that has failed. */
	if (state == TAKEN && given.sequence == request.sequence) {
		reply = given;
		state = ANSWERED;
	}
	spin_unlock(&lock);
	wake_up(&news);
	return sizeof(given);
}

static __poll_t panel_poll(struct file *file, poll_table *table)
{
	poll_wait(file, &news, table);
	return EPOLLOUT | EPOLLWRNORM | (READ_ONCE(state) == ASKED ? EPOLLIN | EPOLLRDNORM : 0);
}

static const struct file_operations panel_files = {
	.owner = THIS_MODULE,
	.open = panel_open,
	.release = panel_release,
	.read = panel_read,
	.write = panel_write,
	.poll = panel_poll,
	.llseek = no_llseek,
};

static struct miscdevice panel_device = {
	.minor = MISC_DYNAMIC_MINOR,
	.name = "panel-gpio",
	.fops = &panel_files,
	.mode = 0600,
};

static int hold_line(void)
{
	if (held < 0)
		return 0;
	held_line = gpiochip_request_own_desc(&chip, held, "held-by-module", GPIO_ACTIVE_HIGH, GPIOD_ASIS);
	return PTR_ERR_OR_ZERO(held_line);
}

static int __init panel_init(void)
{
	int result;

	chip.ngpio = lines;
	result = gpiochip_add_data(&chip, NULL);
	if (result)
		return result;
	result = hold_line();
	if (result)
		goto remove_chip;
	result = misc_register(&panel_device);
	if (result)
		goto free_line;
	registered = true;
	return 0;

free_line:
	if (held_line)
		gpiochip_free_own_desc(held_line);
remove_chip:
	gpiochip_remove(&chip);
	return result;
}
module_init(panel_init);

static void __exit panel_exit(void)
{
	misc_deregister(&panel_device);
	if (held_line)
		gpiochip_free_own_desc(held_line);
	gpiochip_remove(&chip);
}
module_exit(panel_exit);

MODULE_LICENSE("GPL");
MODULE_DESCRIPTION("GPIO controller that a process answers for");
