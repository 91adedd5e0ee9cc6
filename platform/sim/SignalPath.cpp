#include "platform/sim/SignalPath.h"
#include "platform/sim/TopologyAccess.h"

#include <algorithm>
#include <set>
#include <tuple>

namespace sim {

namespace {

// The domains met so far on a path. Searching over (part, domains seen) lets a part be
// reached again by an unmixed path after a mixed one got there first.
enum Seen : unsigned { None = 0, Analog = 1, Digital = 2, Both = 3 };

struct Step {
    model::PartRef part;
    unsigned seen = None;
    int previous = -1; // index of the step before, -1 for the start
};

unsigned seenAt(const model::Part& part) {
    switch (part.domain) {
    case model::SignalDomain::Analog:
        return Analog;
    case model::SignalDomain::Digital:
        return Digital;
    default:
        return None;
    }
}

// The parts the signal reaches in one step from `ref`.
std::vector<model::PartRef> nextParts(const model::Machine& machine, const model::PartRef& ref) {
    std::vector<model::PartRef> next;
    const model::TopologyDevice* device = machine.findDevice(ref.device);
    for (const model::Link& link : device->links) {
        if (link.from == ref.localId) {
            next.push_back({ref.device, link.to});
        }
    }
    const model::Part* part = device->findPart(ref.localId);
    if (part->kind == model::PartKind::Connector && part->connectorFlow == DWORD(Out)) {
        if (std::optional<model::PartRef> partner = partnerOf(machine, ref)) {
            next.push_back(*partner);
        }
    }
    return next;
}

std::vector<model::PartRef> pathEndingAt(const std::vector<Step>& steps, int last) {
    std::vector<model::PartRef> path;
    for (int i = last; i >= 0; i = steps[i].previous) {
        path.push_back(steps[i].part);
    }
    std::reverse(path.begin(), path.end());
    return path;
}

} // namespace

std::vector<model::PartRef> findSignalPath(const model::Machine& machine,
                                           const model::PartRef& from, const model::PartRef& to,
                                           bool rejectMixed) {
    const model::Part* start = machine.findPart(from);
    if (!start || !machine.findPart(to)) {
        return {};
    }
    auto seenOn = [&](unsigned before, const model::Part& part) {
        return rejectMixed ? before | seenAt(part) : unsigned(None);
    };
    std::vector<Step> steps{{from, seenOn(None, *start), -1}};
    std::set<std::tuple<std::string, std::uint32_t, unsigned>> visited{
        {from.device, from.localId, steps[0].seen}};
    for (std::size_t i = 0; i < steps.size(); ++i) {
        if (steps[i].part == to) {
            return pathEndingAt(steps, int(i));
        }
        for (const model::PartRef& next : nextParts(machine, steps[i].part)) {
            const model::Part* part = machine.findPart(next);
            if (!part) {
                continue;
            }
            unsigned seen = seenOn(steps[i].seen, *part);
            if (seen != Both && visited.insert({next.device, next.localId, seen}).second) {
                steps.push_back({next, seen, int(i)});
            }
        }
    }
    return {};
}

} // namespace sim
