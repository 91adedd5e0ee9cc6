#include "platform/model/JsonDocument.h"

#include "platform/model/LoadError.h"

#include <set>

namespace model::json {

namespace {

// Follows the parser through nested objects and arrays to name a repeated field's path.
class DuplicateFieldGuard {
public:
    explicit DuplicateFieldGuard(const std::string& source) : m_source(source) {}

    bool operator()(int, Json::parse_event_t event, const Json& parsed) {
        switch (event) {
        case Json::parse_event_t::object_start:
        case Json::parse_event_t::array_start:
            m_frames.push_back({event == Json::parse_event_t::array_start, 0, {}, {}});
            break;
        case Json::parse_event_t::key:
            enterField(parsed.get<std::string>());
            break;
        case Json::parse_event_t::object_end:
        case Json::parse_event_t::array_end:
            m_frames.pop_back();
            nextElement();
            break;
        case Json::parse_event_t::value:
            nextElement();
            break;
        }
        return true;
    }

private:
    struct Frame {
        bool array;
        std::size_t index;
        std::string key;
        std::set<std::string> keys;
    };

    void enterField(const std::string& key) {
        Frame& object = m_frames.back();
        object.key = key;
        if (!object.keys.insert(key).second) {
            Where where(m_source);
            for (const Frame& f : m_frames) {
                where = f.array ? where[f.index] : where[std::string_view(f.key)];
            }
            where.fail("the field is written twice in one object");
        }
    }

    void nextElement() {
        if (!m_frames.empty() && m_frames.back().array) {
            ++m_frames.back().index;
        }
    }

    const std::string& m_source;
    std::vector<Frame> m_frames;
};

} // namespace

Json parseDocument(const std::string& text, const std::string& source) {
    try {
        return Json::parse(text, DuplicateFieldGuard(source));
    } catch (const Json::exception& error) {
        throw LoadError(source, "", std::string("not valid JSON: ") + error.what());
    }
}

} // namespace model::json
