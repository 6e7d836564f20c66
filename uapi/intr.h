/* SPDX-License-Identifier: GPL-2.0 WITH Linux-syscall-note */
/*
 * User-space interface of the interrupt combiner driver: the control device
 * /dev/intr (a misc device named "intr") and the netlink messages. For C and
 * C++, native and 32-bit programs alike; includes nothing.
 *
 * Every ioctl command takes the address of a drv_intr_ioctl_para. The driver
 * reads all 20 bytes of it for every command, and writes all of them back for
 * the commands of read direction (bit 31 of the number); bytes that a command
 * does not use are ignored on input and come back unchanged. The size field of
 * the numbers says 4 nevertheless: use them as they stand here.
 *
 * Return: 0, or -1 with errno EFAULT, whatever went wrong: record or buffer
 * cannot be read or written, no such command or leaf, a card that cannot be
 * brought up, nothing to report. The driver's log says which.
 *
 * A leaf interrupt is named by (index_id, type) of the configuration.
 *
 * How a process receives a leaf:
 *
 *  1. DRV_INTR_IOC_GET_NETLINK_ID gives the netlink protocol. Open a socket
 *     (AF_NETLINK, SOCK_RAW, that protocol) and bind it; its port id is pid.
 *  2. DRV_INTR_IOC_SET_PID subscribes pid to the leaf. Twice is once.
 *  3. Each occurrence sends one drv_intr_nl_msg to every subscriber of the
 *     leaf, in the order of subscription. Each message delivered disables the
 *     leaf once: it stays silent until every receiver has answered its message
 *     with DRV_INTR_IOC_SET_INT_EN, enable 1. An enable too many stands for the
 *     answer of another receiver, if one is due, and changes nothing otherwise.
 *  4. DRV_INTR_IOC_UNSET_PID ends the subscription.
 *
 * Messages are never repeated. A message that cannot be delivered at once, since
 * the receiver's buffer is full or its port has no socket, ends the subscription,
 * and the leaf is enabled for it. Closing the socket ends the subscription too. A
 * process that ends, or unsubscribes, without answering a message it got leaves the
 * leaf disabled while others use it: whoever subscribes in its place should enable
 * the leaf once.
 *
 * At most DRV_INTR_SUBSCRIBERS_MAX ports can have one leaf.
 *
 * A leaf with sync set, on a combiner without async, has its interrupts handled
 * where nobody can be notified: kernel callbacks only, and an error line in the log
 * for each occurrence that has subscribers.
 */
#ifndef INTR_UAPI_INTR_H
#define INTR_UAPI_INTR_H

#define DRV_INTR_DEVICE "/dev/intr"

/* Leaf: index_id, type and pid. */
#define DRV_INTR_IOC_SET_PID 0x40044901u
#define DRV_INTR_IOC_UNSET_PID 0x40044902u
/* index_id, type; enable not 0 undoes one disable of the leaf, 0 disables it once more. */
#define DRV_INTR_IOC_SET_INT_EN 0x40044903u
/* result becomes the netlink protocol number. */
#define DRV_INTR_IOC_GET_NETLINK_ID 0x80044904u
/* result becomes the interrupt debug switch. */
#define DRV_INTR_IOC_GET_INT_DEBUG_EN 0x80044905u
/*
 * inst_id of a plug-in card, whose configuration is in place: brings its
 * combiners up, and takes them away again. The card's number is bits 31 to 24,
 * or bits 15 to 0 where those are 0xff; 0xffff there is an error. A card without
 * a configuration has no combiners: nothing happens, which is a success. Bringing
 * up a card that is up fails and leaves it as it is.
 */
#define DRV_INTR_IOC_INIT_CARD 0x40044906u
#define DRV_INTR_IOC_DEINIT_CARD 0x40044907u
/*
 * Text reports into buf. All of buf_len, at most DRV_INTR_REPORT_MAX bytes, is
 * written: the text, cut where it does not fit, a NUL, and zeros. A buf_len of 0
 * or 1, in which no text fits, is refused. DBG_VIRQ reports on the leaf with the Linux interrupt number virq.
 */
#define DRV_INTR_IOC_DBG_RUNTIME 0x80044908u
#define DRV_INTR_IOC_DBG_SWITCH 0x80044909u
#define DRV_INTR_IOC_DBG_CFG 0x8004490Au
#define DRV_INTR_IOC_DBG_VIRQ 0x8004490Bu
/* switch_on not 0 traces interrupt paths into the log: of interrupt virq, or of all with 0. */
#define DRV_INTR_IOC_SET_DEBUG_SWITCH 0x4004490Cu

#define DRV_INTR_REPORT_MAX 65536u

/* So many ports can have one leaf; SET_PID refuses a further one. */
#define DRV_INTR_SUBSCRIBERS_MAX 64u

/* Host byte order. Packed, since a 64-bit field must not raise the size to 24 where it asks for 8. */
struct drv_intr_ioctl_para {
	union {
		struct {
			union {
				unsigned int index_id;
				unsigned int inst_id;
				unsigned int result;
			};
			unsigned int type;
		};
		/* A user address; zero-extended by 32-bit programs. */
		unsigned long long buf;
	};
	union {
		unsigned int pid;
		unsigned int enable;
		unsigned int buf_len;
	};
	unsigned int virq;
	unsigned int switch_on;
} __attribute__((packed, aligned(4)));

/* One netlink message, in host byte order: the standard header (16 bytes), then the leaf. */
struct drv_intr_nl_leaf {
	unsigned int index_id;
	unsigned int type;
};

struct drv_intr_nl_msg {
	unsigned int nlmsg_len; /* 24 */
	unsigned short nlmsg_type; /* 0 */
	unsigned short nlmsg_flags; /* 0 */
	unsigned int nlmsg_seq; /* 0 */
	unsigned int nlmsg_pid; /* 0: the kernel */
	struct drv_intr_nl_leaf leaf;
};

#ifdef __cplusplus
#define DRV_INTR_ABI_CHECK(condition) static_assert(condition, #condition)
#else
#define DRV_INTR_ABI_CHECK(condition) _Static_assert(condition, #condition)
#endif
#define DRV_INTR_ABI_FIELD(record, field, offset, size) \
	DRV_INTR_ABI_CHECK(__builtin_offsetof(struct record, field) == offset && \
			   sizeof(((struct record *)0)->field) == size)

DRV_INTR_ABI_CHECK(sizeof(struct drv_intr_ioctl_para) == 20);
DRV_INTR_ABI_FIELD(drv_intr_ioctl_para, index_id, 0, 4);
DRV_INTR_ABI_FIELD(drv_intr_ioctl_para, inst_id, 0, 4);
DRV_INTR_ABI_FIELD(drv_intr_ioctl_para, result, 0, 4);
DRV_INTR_ABI_FIELD(drv_intr_ioctl_para, buf, 0, 8);
DRV_INTR_ABI_FIELD(drv_intr_ioctl_para, type, 4, 4);
DRV_INTR_ABI_FIELD(drv_intr_ioctl_para, pid, 8, 4);
DRV_INTR_ABI_FIELD(drv_intr_ioctl_para, enable, 8, 4);
DRV_INTR_ABI_FIELD(drv_intr_ioctl_para, buf_len, 8, 4);
DRV_INTR_ABI_FIELD(drv_intr_ioctl_para, virq, 12, 4);
DRV_INTR_ABI_FIELD(drv_intr_ioctl_para, switch_on, 16, 4);
DRV_INTR_ABI_CHECK(sizeof(struct drv_intr_nl_leaf) == 8);
DRV_INTR_ABI_CHECK(sizeof(struct drv_intr_nl_msg) == 24);
DRV_INTR_ABI_FIELD(drv_intr_nl_msg, nlmsg_type, 4, 2);
DRV_INTR_ABI_FIELD(drv_intr_nl_msg, nlmsg_flags, 6, 2);
DRV_INTR_ABI_FIELD(drv_intr_nl_msg, nlmsg_seq, 8, 4);
DRV_INTR_ABI_FIELD(drv_intr_nl_msg, nlmsg_pid, 12, 4);
DRV_INTR_ABI_FIELD(drv_intr_nl_msg, leaf, 16, 8);

#endif
