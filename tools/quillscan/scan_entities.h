// Entities: the owners and groups of a census, numbered as they are met.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <unordered_map>

namespace quillscan {

struct EntityRow {
    int32_t number;
    bool isGroup;
    uint32_t id;
    std::string name, fullName;
};

// One thread. Names come from the system's name services, once for each identifier.
class Entities {
  public:
    // `met` takes each new one.
    explicit Entities(std::function<void(const EntityRow&)> met) : met_(std::move(met)) {}
    int32_t user(uint32_t id) { return number(users_, false, id); }
    int32_t group(uint32_t id) { return number(groups_, true, id); }

  private:
    struct Kind {
        std::unordered_map<uint32_t, int32_t> numbers;
        uint32_t lastId = 0;
        int32_t last = 0;  // of lastId; 0 none yet
    };
    int32_t number(Kind& kind, bool isGroup, uint32_t id) {
        if (kind.last && kind.lastId == id) return kind.last;
        return look(kind, isGroup, id);
    }
    int32_t look(Kind& kind, bool isGroup, uint32_t id);

    std::function<void(const EntityRow&)> met_;
    Kind users_, groups_;
    int32_t count_ = 0;
};

}  // namespace quillscan
