// SPDX-License-Identifier: GPL-2.0
//
// Proc files over single-record sequence files.
//
// A sequence file renders its text into a buffer when reading begins, again into
// a buffer twice the size while it does not fit, and serves reads from there.
// What decides when it is rendered anew is where a read or seek goes compared to
// where the last one ended. Removing an entry waits for the calls into it and
// shuts out later ones; files of it that are still open give -EIO.
#include "internal.h"

#include <algorithm>
#include <cstring>
#include <vector>

struct proc_dir_entry {
	std::string name;
	proc_dir_entry *parent; // may be none of ours: the directory of another module
	plat_proc_ops *ops; // null: a directory
	std::mutex lock;
	u32 calls = 0; // running, under the lock
	bool gone = false;
};

struct seq_file {
	int (*show)(seq_file *seq, void *record);
	std::vector<char> buffer;
	size_t from = 0; // the first byte to be served
	size_t count = 0; // bytes from there; of the record while it is rendered
	long long index = 0; // 0: before the one record, else behind it
	long long read_position = 0; // where the last read ended
};

namespace model {

constexpr size_t first_buffer = 4096;
constexpr int again = 1; // rendering overflowed, the buffer has grown

using entry_ref = std::shared_ptr<proc_dir_entry>;

static std::mutex entries_lock;
static std::vector<entry_ref> entries;

// The calls below are with entries_lock held.

static entry_ref find(const proc_dir_entry *wanted)
{
	const auto found = std::find_if(entries.begin(), entries.end(),
					[&](const entry_ref &at) { return at.get() == wanted; });

	return found == entries.end() ? nullptr : *found;
}

// Without the directories of other modules.
static std::string path_of(const proc_dir_entry &entry)
{
	const entry_ref parent = find(entry.parent);

	return parent ? path_of(*parent) + "/" + entry.name : entry.name;
}

static bool below(const proc_dir_entry &entry, const proc_dir_entry &top)
{
	if (&entry == &top)
		return true;
	const entry_ref parent = find(entry.parent);
	return parent && below(*parent, top);
}

static proc_dir_entry *create(const char *name, proc_dir_entry *parent, plat_proc_ops *ops)
{
	const std::lock_guard guard(entries_lock);

	for (const entry_ref &other : entries) {
		if (other->parent != parent || other->name != name)
			continue;
		bug("proc_dir_entry '%s' already registered", path_of(*other).c_str());
		return nullptr;
	}
	auto entry = std::make_shared<proc_dir_entry>();
	entry->name = name;
	entry->parent = parent;
	entry->ops = ops;
	entries.push_back(entry);
	return entry.get();
}

// Off the tree with all below. Empty: there is no such entry.
static std::vector<entry_ref> detach(const proc_dir_entry *top)
{
	const std::lock_guard guard(entries_lock);
	const entry_ref kept = find(top);
	std::vector<entry_ref> detached;

	if (!kept)
		return detached;
	for (const entry_ref &entry : entries)
		if (below(*entry, *kept))
			detached.push_back(entry);
	std::erase_if(entries, [&](const entry_ref &entry) {
		return std::find(detached.begin(), detached.end(), entry) != detached.end();
	});
	return detached;
}

static void shut(proc_dir_entry &entry)
{
	{
		const std::lock_guard guard(entry.lock);
		entry.gone = true;
	}
	wait_until(
		[&] {
			const std::lock_guard guard(entry.lock);
			return entry.calls == 0;
		},
		"proc_remove");
}

namespace {

// A call into an entry, or none where the entry is gone.
class entry_call {
public:
	explicit entry_call(proc_dir_entry &entry) : entry_(entry)
	{
		const std::lock_guard guard(entry.lock);

		entered_ = !entry.gone;
		entry.calls += entered_;
	}
	~entry_call()
	{
		const std::lock_guard guard(entry_.lock);

		entry_.calls -= entered_;
	}
	entry_call(const entry_call &) = delete;
	entry_call &operator=(const entry_call &) = delete;

	bool entered() const { return entered_; }

private:
	proc_dir_entry &entry_;
	bool entered_;
};

} // namespace

// 0, "again", or the record's own failure.
static int render(seq_file &seq)
{
	const process_call call("show of a proc file");
	void *const first_record = reinterpret_cast<void *>(1);

	if (seq.buffer.empty())
		seq.buffer.resize(first_buffer);
	seq.from = 0;
	seq.count = 0;
	const int ret = seq.show(&seq, first_record);
	if (ret) // to be skipped where it is above 0
		seq.count = 0;
	if (ret < 0)
		return ret;
	if (seq.count < seq.buffer.size())
		return 0;
	seq.count = 0;
	seq.buffer.assign(seq.buffer.size() * 2, 0);
	return again;
}

static int render_whole(seq_file &seq)
{
	int ret;

	do
		ret = render(seq);
	while (ret == again);
	return ret;
}

static void rewind(seq_file &seq)
{
	seq.index = 0;
	seq.count = 0;
	seq.from = 0;
}

// Renders anew and leaves what follows the offset.
static int traverse(seq_file &seq, long long offset)
{
	rewind(seq);
	if (!offset)
		return 0;
	const int ret = render_whole(seq);
	if (ret)
		return ret;
	seq.index = 1;
	const size_t skipped = std::min(seq.count, static_cast<size_t>(offset));
	seq.from = skipped;
	seq.count -= skipped;
	return 0;
}

static int go_to(seq_file &seq, long long position)
{
	const int ret = traverse(seq, position);

	if (ret)
		rewind(seq);
	seq.read_position = ret ? 0 : position;
	return ret;
}

static size_t serve(seq_file &seq, void *buffer, size_t size)
{
	const size_t done =
		write_user(buffer, seq.buffer.data() + seq.from, std::min(size, seq.count));

	seq.from += done;
	seq.count -= done;
	return done;
}

static long read_seq(seq_file &seq, long long &position, void *buffer, size_t size)
{
	int ret = 0;

	if (!position)
		rewind(seq);
	if (position != seq.read_position)
		ret = go_to(seq, position);
	if (!ret && !seq.count && !seq.index) {
		ret = render_whole(seq);
		seq.index = ret == 0;
	}
	if (ret)
		return ret;
	const size_t done = serve(seq, buffer, size);
	if (!done)
		return seq.count ? -efault : 0;
	position += static_cast<long long>(done);
	seq.read_position += static_cast<long long>(done);
	return static_cast<long>(done);
}

static int open_entry(plat_proc_ops &ops, file &opened)
{
	const process_call call("open of a proc file");
	inode node;

	const int ret = ops.open(&node, &opened);
	if (ret && opened.seq)
		bug("%s: open failed after single_open, whose memory leaks", opened.name.c_str());
	if (ret || opened.seq)
		return ret;
	bug("%s: opened without single_open", opened.name.c_str());
	return -einval;
}

static entry_ref find_file(const char *path)
{
	const std::lock_guard guard(entries_lock);

	for (const entry_ref &entry : entries)
		if (entry->ops && path_of(*entry) == path)
			return entry;
	return nullptr;
}

u32 proc_left(std::string &text)
{
	const std::lock_guard guard(entries_lock);

	for (const entry_ref &entry : entries)
		text += " proc entry \"" + path_of(*entry) + "\"";
	return static_cast<u32>(entries.size());
}

void proc_reset()
{
	entries.clear();
}

} // namespace model

using namespace model;

struct proc_dir_entry *plat_proc_mkdir(const char *name, struct proc_dir_entry *parent)
{
	long injected;

	if (fails(service::proc_mkdir, injected) || !might_sleep("proc_mkdir"))
		return nullptr;
	return create(name, parent, nullptr);
}

struct proc_dir_entry *plat_proc_create_data(const char *name, u16 /*mode*/,
					     struct proc_dir_entry *parent,
					     struct plat_proc_ops *ops, void * /*data*/)
{
	long injected;

	if (fails(service::proc_create_data, injected) || !might_sleep("proc_create_data"))
		return nullptr;
	return create(name, parent, ops);
}

void plat_proc_remove(struct proc_dir_entry *entry)
{
	count_call(service::proc_remove);
	if (!entry || !might_sleep("proc_remove"))
		return;
	const std::vector<entry_ref> detached = detach(entry);
	if (detached.empty())
		bug("proc_remove: %p is no entry", static_cast<void *>(entry));
	for (const entry_ref &gone : detached)
		shut(*gone);
}

int plat_single_open(struct file *file, int (*show)(struct seq_file *seq, void *data),
		     void * /*data*/)
{
	long injected;

	if (fails(service::single_open, injected))
		return static_cast<int>(injected);
	if (!might_sleep("single_open"))
		return -enomem;
	if (file->seq)
		bug("%s: single_open twice", file->name.c_str());
	file->seq = std::make_shared<seq_file>();
	file->seq->show = show;
	return 0;
}

// What does not fit makes the buffer full, which shows that it overflowed.
void plat_seq_puts(struct seq_file *seq, const char *text)
{
	count_call(service::seq_puts);
	const size_t room = seq->buffer.size() - seq->count;
	const size_t length = strlen(text);

	memcpy(seq->buffer.data() + seq->count, text, std::min(room, length));
	seq->count = length < room ? seq->count + length : seq->buffer.size();
}

int host_proc_open(const char *path, int writing)
{
	const entry_ref entry = find_file(path);

	if (!entry)
		return -enoent;
	const entry_call call(*entry);
	if (!call.entered())
		return -enoent;
	auto opened = std::make_shared<file>();
	opened->name = path;
	opened->entry = entry;
	opened->writing = writing != 0;
	const int ret = open_entry(*entry->ops, *opened);
	return ret ? ret : file_install(opened);
}

long host_proc_read(int handle, void *buffer, size_t size)
{
	const std::shared_ptr<file> opened = file_of(handle);

	if (!opened || !opened->entry)
		return -ebadf;
	const std::lock_guard guard(opened->lock);
	const entry_call call(*opened->entry);
	if (!call.entered())
		return -eio;
	return size ? read_seq(*opened->seq, opened->position, buffer, size) : 0;
}

long host_proc_write(int handle, const void *buffer, size_t size)
{
	const std::shared_ptr<file> opened = file_of(handle);

	if (!opened || !opened->entry || !opened->writing)
		return -ebadf;
	const std::lock_guard guard(opened->lock);
	const entry_call call(*opened->entry);
	if (!call.entered() || !opened->entry->ops->write)
		return -eio;
	const process_call process("write of a proc file");
	return opened->entry->ops->write(opened.get(), static_cast<const char *>(buffer), size,
					 &opened->position);
}

long host_proc_seek(int handle, long position)
{
	const std::shared_ptr<file> opened = file_of(handle);

	if (!opened || !opened->entry)
		return -ebadf;
	const std::lock_guard guard(opened->lock);
	const entry_call call(*opened->entry);
	if (!call.entered() || position < 0)
		return -einval;
	const int ret = position != opened->seq->read_position ? go_to(*opened->seq, position) : 0;
	opened->position = ret ? 0 : position;
	return ret ? ret : position;
}

int host_proc_close(int handle)
{
	const std::shared_ptr<file> opened = file_take(handle);

	return opened && opened->entry ? 0 : -ebadf;
}
