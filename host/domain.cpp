// SPDX-License-Identifier: GPL-2.0
//
// Interrupt domains: each maps its hwirqs to virqs,
// the lowest free ones. The root controller's domain belongs to the model.
#include "internal.h"

#include <map>
#include <set>

struct irq_domain {
	std::string name;
	fwnode_handle *fwnode;
	unsigned long hwirq_limit = ~0ul;
	int (*map)(irq_domain *domain, unsigned int virq, unsigned long hwirq);
	void *host_data;
	std::map<unsigned long, u32> mappings; // under domains_mutex
	bool abandoned = false;
};

namespace model {

static lock domains_mutex{class_domain};
static std::set<irq_domain *> domains;
static std::set<fwnode_handle *> fwnodes;
static u32 unnamed_count;

static int map_line(irq_domain * /*domain*/, unsigned int virq, unsigned long hwirq)
{
	constexpr unsigned long level_high = 4;
	irq_desc &desc = *desc_of(virq);
	const raw_guard guard(desc.lock);

	const u32 line = static_cast<u32>(hwirq - first_line);

	if (on_gpio(line)) {
		desc.data.chip.store(gpio_chip(), std::memory_order_release);
		set_handler(desc, handle_level, false);
	} else {
		desc.data.chip.store(line_chip(), std::memory_order_release);
		desc.data.effective = all_cpus;
		desc.settings = level_high | irq_level;
		set_handler(desc, handle_fasteoi, false);
	}
	line_bind(line, &desc);
	return 0;
}

irq_domain *root_domain()
{
	static irq_domain root = {
		.name = "root",
		.fwnode = nullptr,
		.hwirq_limit = first_line + HOST_LINES,
		.map = map_line,
		.host_data = nullptr,
		.mappings = {},
	};

	return &root;
}

u32 create_mapping(irq_domain &domain, unsigned long hwirq)
{
	const sleeping_guard guard(domains_mutex, "irq_create_mapping");
	const auto found = domain.mappings.find(hwirq);

	if (found != domain.mappings.end())
		return found->second;
	if (hwirq >= domain.hwirq_limit) {
		bug("irq_create_mapping: hwirq 0x%lx is too large for %s", hwirq,
		    domain.name.c_str());
		return 0;
	}
	irq_desc *desc = desc_alloc();
	if (!desc)
		return 0;
	desc->data.hwirq = hwirq;
	desc->data.domain = &domain;
	const u32 virq = desc->data.irq;
	if (domain.map && domain.map(&domain, virq, hwirq)) {
		desc_withdraw(desc);
		return 0;
	}
	domain.mappings[hwirq] = virq;
	const raw_guard lock(desc->lock);
	desc->settings &= ~irq_norequest;
	return virq;
}

static void dispose(irq_desc &desc)
{
	{
		const sleeping_guard guard(domains_mutex, "irq_dispose_mapping");

		desc.data.domain.load()->mappings.erase(desc.data.hwirq);
		if (is_line(desc))
			line_bind(static_cast<u32>(desc.data.hwirq - first_line), nullptr);
		{
			const raw_guard lock(desc.lock);

			desc.settings |= irq_norequest;
			desc.data.chip.store(&no_chip, std::memory_order_release);
			set_handler(desc, nullptr, false);
		}
		synchronize(desc);
	}
	desc_withdraw(&desc);
}

bool fwnode_in_use(const fwnode_handle *fwnode)
{
	const sleeping_guard guard(domains_mutex, "irq_domain_free_fwnode");

	for (const irq_domain *domain : domains)
		if (domain->fwnode == fwnode)
			return true;
	return false;
}

u32 domains_left(std::string &text)
{
	const sleeping_guard guard(domains_mutex, "host_check_leftovers");

	std::set<const fwnode_handle *> kept;
	u32 left = 0;

	for (const irq_domain *domain : domains) {
		if (domain->abandoned) {
			kept.insert(domain->fwnode);
			continue;
		}
		text += " domain \"" + domain->name + "\"";
		left++;
	}
	for (const fwnode_handle *fwnode : fwnodes) {
		if (kept.count(fwnode))
			continue;
		text += " firmware node \"" + fwnode->name + "\"";
		left++;
	}
	return left;
}

void domains_reset()
{
	for (const irq_domain *domain : domains)
		delete domain;
	for (const fwnode_handle *fwnode : fwnodes)
		delete fwnode;
	domains.clear();
	fwnodes.clear();
	root_domain()->mappings.clear();
	unnamed_count = 0;
}

} // namespace model

using namespace model;

struct irq_domain *plat_irq_domain_create_tree(struct fwnode_handle *fwnode,
					       const struct plat_irq_domain_ops *ops,
					       void *host_data)
{
	long injected;

	if (fails(service::irq_domain_create_tree, injected))
		return nullptr;

	const sleeping_guard guard(domains_mutex, "irq_domain_create_tree");
	auto *domain = new irq_domain{
		.name = fwnode ? fwnode->name : "unknown-" + std::to_string(++unnamed_count),
		.fwnode = fwnode,
		.map = ops->map,
		.host_data = host_data,
		.mappings = {},
	};
	domains.insert(domain);
	return domain;
}

void *plat_irq_domain_host_data(struct irq_domain *domain)
{
	count_call(service::irq_domain_host_data);
	return domain->host_data;
}

void plat_irq_domain_remove(struct irq_domain *domain)
{
	count_call(service::irq_domain_remove);
	const sleeping_guard guard(domains_mutex, "irq_domain_remove");

	if (!domain->mappings.empty()) {
		bug("irq_domain_remove: %s has %zu mappings, interrupt %u among them",
		    domain->name.c_str(), domain->mappings.size(),
		    domain->mappings.begin()->second);
		return;
	}
	domains.erase(domain);
	delete domain;
}

void plat_irq_domain_abandon(struct irq_domain *domain)
{
	count_call(service::irq_domain_abandon);
	const sleeping_guard guard(domains_mutex, "irq_domain_abandon");

	for (const auto &[hwirq, virq] : domain->mappings) {
		if (&desc_of(virq)->chip() != &no_chip)
			bug("irq_domain_abandon: interrupt %u of %s has a chip", virq,
			    domain->name.c_str());
		if (desc_of(virq)->lock.cls != class_desc)
			bug("irq_domain_abandon: interrupt %u of %s has a lock class of the driver",
			    virq, domain->name.c_str());
	}
	domain->host_data = nullptr;
	domain->map = nullptr;
	domain->abandoned = true;
}

bool model::is_abandoned(const irq_data &data)
{
	const irq_domain *domain = data.domain;

	return domain && domain->abandoned;
}

u32 plat_irq_create_mapping(struct irq_domain *domain, unsigned long hwirq)
{
	long injected;

	if (fails(service::irq_create_mapping, injected))
		return static_cast<u32>(injected);
	if (!domain) {
		bug("irq_create_mapping without a domain");
		return 0;
	}
	return might_sleep("irq_create_mapping") ? create_mapping(*domain, hwirq) : 0;
}

void plat_irq_dispose_mapping(u32 virq)
{
	count_call(service::irq_dispose_mapping);
	irq_desc *desc = desc_of(virq);

	if (!desc || !might_sleep("irq_dispose_mapping"))
		return;
	if (const irqaction *action = desc->action.load(std::memory_order_acquire)) {
		bug("irq_dispose_mapping: interrupt %u is still %s", virq,
		    action == &chained_action ? "chained"
					      : ("requested by " + action->name).c_str());
		return;
	}
	dispose(*desc);
}

struct fwnode_handle *plat_irq_domain_alloc_named_fwnode(const char *name)
{
	long injected;

	if (fails(service::irq_domain_alloc_named_fwnode, injected))
		return nullptr;
	const sleeping_guard guard(domains_mutex, "irq_domain_alloc_named_fwnode");
	return *fwnodes.insert(new fwnode_handle{name, true}).first;
}

void plat_irq_domain_free_fwnode(struct fwnode_handle *fwnode)
{
	count_call(service::irq_domain_free_fwnode);
	if (!fwnode || !fwnode->allocated) {
		bug("irq_domain_free_fwnode: not an allocated node");
		return;
	}
	if (fwnode_in_use(fwnode)) {
		bug("irq_domain_free_fwnode: node %s has a domain", fwnode->name.c_str());
		return;
	}
	const sleeping_guard guard(domains_mutex, "irq_domain_free_fwnode");
	fwnodes.erase(fwnode);
	delete fwnode;
}
