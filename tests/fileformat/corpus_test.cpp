// The fuzzing seeds double as regression inputs: valid_* files read and round-trip, bad_* files
// fail with a position inside the file.

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "kapparameter/kapParameterFile.h"

namespace {

namespace fs = std::filesystem;

TEST(FuzzCorpus, SeedsBehaveAsTheirNamesSay) {
    const fs::path dir = fs::path(KAPPAR_SOURCE_DIR) / "fuzz" / "corpus" / "reader";
    ASSERT_TRUE(fs::is_directory(dir)) << dir;
    int valid = 0;
    int bad = 0;
    for (const fs::directory_entry& entry : fs::directory_iterator(dir)) {
        const std::string name = entry.path().filename().string();
        std::ifstream in(entry.path(), std::ios::binary);
        const std::string text((std::istreambuf_iterator<char>(in)), {});
        kapFileDocument doc;
        kapFileError err;
        const bool ok = kap_read_entity_text(text, doc, err);
        if (name.rfind("valid_", 0) == 0) {
            ++valid;
            ASSERT_TRUE(ok) << name << ":" << err.line << ":" << err.column << ": " << err.message;
            kapFileDocument back;
            ASSERT_TRUE(kap_read_entity_text(kap_write_entity_text(doc), back, err)) << name;
            EXPECT_TRUE(kap_same_entity_content(doc, back)) << name;
        } else if (name.rfind("bad_", 0) == 0) {
            ++bad;
            EXPECT_FALSE(ok) << name;
            EXPECT_GE(err.line, 1) << name;
            EXPECT_GE(err.column, 1) << name;
        }
    }
    EXPECT_GT(valid, 0);
    EXPECT_GT(bad, 0);
}

}  // namespace
