// Declared schemas compared with reference files, so that rewriting a table cannot change what it
// declares: what `kappar schema KIND --format json` prints (metric and inch), and the declaration
// details the tool does not print (legacy keys, measure and mirror modes, callbacks, units).
//
// Reference files live in tests/entities/golden/. To regenerate them after an intended change:
//     KAPPAR_UPDATE_GOLDEN=1 ./build/debug/tests/entities/test_entities
//     --gtest_filter='SchemaGolden*'
// then read `git diff tests/entities/golden` before committing.

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "kappar/kapEntity.h"

#ifdef KAPPAR_TOOL_PATH
#include "tool_process.h"
#endif

namespace {

// The kinds whose schemas the tool's files hold; the declaration details are kept for every
// registered kind (a kind added later brings its own files).
constexpr const char* kKinds[] = {"boundary", "DrillingHole", "event",      "level",
                                  "model",    "pattern",      "stockmodel", "workplane"};

const std::filesystem::path kGoldenDir =
    std::filesystem::path(KAPPAR_SOURCE_DIR) / "tests" / "entities" / "golden";

std::string read_text(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

void compare_with_golden(const std::string& name, const std::string& actual) {
    const std::filesystem::path path = kGoldenDir / name;
    if (std::getenv("KAPPAR_UPDATE_GOLDEN") != nullptr) {
        std::ofstream(path, std::ios::binary | std::ios::trunc) << actual;
        return;
    }
    ASSERT_TRUE(std::filesystem::exists(path)) << path;
    EXPECT_TRUE(read_text(path) == actual) << "differs from " << path;
}

void describe(const kapParameter& p, const std::string& path, std::string& out) {
    const kapParameterImpl& d = p.impl();
    out += path;
    out += " legacy=" + d.legacy;
    out += " subtype=" + std::to_string(d.subtype) + " dims=" + std::to_string(d.dims);
    out += " units=" + std::to_string(d.units) + " measure=" + std::to_string(d.measure_mode);
    out += " mirror=" + std::to_string(d.mirror_mode) + " access=" + std::to_string(d.access_type);
    out += " fixed=" + std::to_string(static_cast<int>(d.fixed));
    if (d.has_defaults) out += " defaults=[" + d.default_metric + "|" + d.default_inch + "]";
    if (d.component) {
        out += " component=" + std::to_string(d.component->dims) + "/" +
               std::to_string(d.component->units) + "/" +
               std::to_string(static_cast<int>(d.component->has_range));
    }
    for (const utString* cb : {&d.onmodify_name, &d.onread_name, &d.onmirror_name}) {
        if (!cb->empty()) out += " " + *cb;
    }
    out += '\n';
    if (!p.is_map()) return;
    const auto& map = static_cast<const kapParameterMap&>(p);
    for (std::size_t i = 0; i < map.size(); ++i) {
        const kapParameterPtr child = map.child(i);
        describe(*child, path + "/" + child->get_name(), out);
    }
}

#ifdef KAPPAR_TOOL_PATH
TEST(SchemaGolden, ToolPrintsTheSameSchemas) {
    for (const char* kind : kKinds) {
        for (const bool inch : {false, true}) {
            SCOPED_TRACE(std::string(kind) + (inch ? " inch" : " metric"));
            std::vector<std::string> args = {"schema", kind, "--format", "json"};
            if (inch) args.insert(args.end(), {"--units", "inch"});
            const tooltest::ToolRun run = tooltest::run_tool(args);
            EXPECT_EQ(run.status, 0) << run.err;
            compare_with_golden(std::string("schema_") + kind + (inch ? "_inch" : "") + ".json",
                                run.out);
        }
    }
}
#endif

TEST(SchemaGolden, DeclarationDetailsStayTheSame) {
    for (const kapEntityKindInfo& info : kapEntityKinds::all()) {
        const std::string kind(info.kind);
        for (const int units : {0, 1}) {
            SCOPED_TRACE(std::string(kind) + (units != 0 ? " inch" : " metric"));
            kapUnitsScope scope(units);
            std::unique_ptr<kapParameterRoot> root = kapEntityKinds::create(kind, utString("E"));
            ASSERT_NE(root, nullptr);
            std::string text;
            describe(*root, kind, text);
            compare_with_golden(std::string("decl_") + kind + (units != 0 ? "_inch" : "") + ".txt",
                                text);
        }
    }
}

}  // namespace
