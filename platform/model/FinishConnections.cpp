// Physical connections between connectors of two topology devices. A description writes
// each connection once; the partner is made to point back here.
#include "platform/model/FinishSteps.h"

namespace model::finish {

namespace {

std::string describePart(const PartRef& ref) {
    return "connector " + std::to_string(ref.localId) + " of " + inQuotes(ref.device);
}

Part& partnerOf(Machine& m, const PartRef& self, const PartRef& target, const Where& where) {
    if (!m.findDevice(target.device)) {
        where["device"].fail("no topology device has the id " + inQuotes(target.device));
    }
    Part* partner = m.findPart(target);
    if (!partner || partner->kind != PartKind::Connector) {
        where["connector"].fail(inQuotes(target.device) + " has no connector with the local id " +
                                std::to_string(target.localId));
    }
    if (target == self) {
        where.fail("a connector cannot be connected to itself");
    }
    return *partner;
}

void pairOne(Machine& m, const PartRef& self, const PartRef& target, const Where& where) {
    Part& partner = partnerOf(m, self, target, where);
    if (!partner.connectedTo) {
        partner.connectedTo = self;
    } else if (!(*partner.connectedTo == self)) {
        where.fail(describePart(target) + " is already connected to " +
                   describePart(*partner.connectedTo));
    }
}

} // namespace

void pairConnections(Machine& m, const Where& root) {
    for (std::size_t d = 0; d < m.devices.size(); ++d) {
        for (std::size_t p = 0; p < m.devices[d].parts.size(); ++p) {
            // Copied: pairing may write into this very device's parts.
            std::optional<PartRef> target = m.devices[d].parts[p].connectedTo;
            if (target) {
                PartRef self{m.devices[d].id, m.devices[d].parts[p].localId};
                pairOne(m, self, *target, partWhere(root, m, d, p)["connected_to"]);
            }
        }
    }
}

} // namespace model::finish
