#pragma once
// The host's version manager: named settings that switch behaviours of newer releases on, each
// at a level (0: the old behaviour). "feature_groups" is at level 1 unless the host says otherwise.

#include <map>
#include <string>
#include <string_view>

class kapVersionManager {
  public:
    static int get_level(std::string_view setting) {
        const auto it = levels().find(setting);
        return it == levels().end() ? 0 : it->second;
    }
    static void set_level(std::string_view setting, int level) {
        levels().insert_or_assign(std::string(setting), level);
    }

  private:
    static std::map<std::string, int, std::less<>>& levels() {
        static std::map<std::string, int, std::less<>> table{{"feature_groups", 1}};
        return table;
    }
};
