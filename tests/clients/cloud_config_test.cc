#include <jansson.h>

#include "support/test.h"

constexpr char kFull[] =
    R"({"settings": {"enabled": true, "StoragePath": "/s", "CacheSizeGB": 5, "MaxFileSizeMB": 6,
        "MaxDCUploadBatchNumber": 7, "OutputSegmentsHistory": true}, "other": 1})";

struct CloudConfigTest : FolderTest {
    CloudConfigTest() {
        setenv("ZQREGISTRY", registry_.c_str(), 1);
        writeFile(registry_, "[Other]\nConfigFilePath = " + path + "\n");
        writeFile(path, kFull);
    }
    ~CloudConfigTest() override { unsetenv("ZQREGISTRY"); }
    /// The failure of loading @p settings.
    std::string load(const std::string &settings) {
        writeFile(path, settings);
        CloudConfig config;
        EXPECT_EQ(-1, config.initFromConfigFile(path.c_str())) << settings;
        EXPECT_TRUE(!config.item.enabled && *config.path == '\0') << "nothing changed";
        return log.take();
    }
    const std::string registry_ = dir / "registry";
};

TEST_F(CloudConfigTest, LoadsWholeFilesAndNamesWhatIsMissing) {
    CloudConfig config;
    ASSERT_EQ(0, config.initFromConfigFile(path.c_str()));
    EXPECT_TRUE(config.item.enabled && config.item.StoragePath == "/s" && config.item.CacheSizeGB == 5 &&
                config.item.MaxFileSizeMB == 6 && config.item.MaxDCUploadBatchNumber == 7 &&
                config.item.OutputSegmentsHistory);
    writeFile(path, R"({"settings": {"enabled": true, "StoragePath": "", "CacheSizeGB": 4294967295,
        "MaxFileSizeMB": 0, "OutputSegmentsHistory": 1}})");
    ASSERT_EQ(0, config.initFromConfigFile(path.c_str()));
    EXPECT_TRUE(config.item.MaxDCUploadBatchNumber == 32 && !config.item.OutputSegmentsHistory) << "back to defaults";
    const std::string first = R"("enabled": true, "StoragePath": "", )";
    const std::pair<const char *, std::string> rows[] = {{"enabled is not bool.", R"("enabled": 1)"},
        {"enabled is not bool.", ""}, {"StoragePath is not a string.", R"("enabled": true)"},
        {"CacheSizeGB is not an integer.", first + R"("CacheSizeGB": 1.0)"},
        {"MaxFileSizeMB is not an integer.", first + R"("CacheSizeGB": 1, "MaxFileSizeMB": 4294967296)"},
        {"MaxDCUploadBatchNumber is not an integer.",
            first + R"("CacheSizeGB": 1, "MaxFileSizeMB": 1, "MaxDCUploadBatchNumber": "x")"}};
    for (const auto &[text, members] : rows)
        EXPECT_EQ(std::string("32 loadFromJson: ") + text + "\n32 loadFromJsonObject: load json object failed.",
            load("{\"settings\": {" + members + "}}"));
    EXPECT_THAT(load("{}"), StartsWith("32 loadFromJson: enabled is not bool."));
    EXPECT_EQ("32 loadFromJsonObject: it is not an json object.", load("[]"));
    EXPECT_EQ("32 initFromConfigFile: Load JSON file " + path + " error: on line 2: ':' expected near '1'.",
        load("{\n\"a\" 1}"));
    EXPECT_FAILS(ENOENT, -1, config.initFromConfigFile((dir / "absent").c_str()));
}

TEST_F(CloudConfigTest, UpdatesRewriteTheFileOnlyWhenSomethingChanges) {
    EXPECT_EQ(0, link(path.c_str(), (dir / "twin").c_str()));
    bool enabled = true;
    std::string size = "5";
    EXPECT_EQ(1, CloudConfig::UpdateEnabled(enabled));
    EXPECT_EQ(1, CloudConfig::UpdateCachesize(size));
    EXPECT_TRUE(std::filesystem::equivalent(path, dir / "twin"));
    enabled = false;
    size = "4294967295";
    EXPECT_EQ(2, CloudConfig::UpdateEnabled(enabled));
    EXPECT_EQ(2, CloudConfig::UpdateCachesize(size));
    EXPECT_EQ(R"({
    "settings": {
        "enabled": false,
        "StoragePath": "/s",
        "CacheSizeGB": 4294967295,
        "MaxFileSizeMB": 6
    }
}
)",
        readFile(path));
    enabled = true, size = "";
    EXPECT_EQ(0, CloudConfig::getCloudCfgFile(enabled, size));
    EXPECT_TRUE(!enabled && size == "4294967295" && !CloudConfig::is_cloud_direct_enabled());
    for (std::string bad : {"", "x", "5x", " 5", "-1", "4294967296"}) {
        EXPECT_FAILS(bad == "4294967296" ? ERANGE : EINVAL, -1, CloudConfig::UpdateCachesize(bad));
    }
    const std::string content = readFile(path);
    enabled = true;
    const FaultScope fault("rename", 1, EROFS);
    EXPECT_FAILS_WITH("30 saveConfigFile: failed to write config file(" + path + ")\n30 failed to save cfg file", -1,
        CloudConfig::UpdateEnabled(enabled));
    EXPECT_EQ(content, readFile(path));
}

TEST_F(CloudConfigTest, ProcessesDoNotUndoEachOthersChanges) {
    const auto statuses = inChildren(2, [&] {
        const bool first = mkdir((dir / "first").c_str(), 0700) == 0;
        for (uint32_t i = 1; i <= 50; ++i) {
            bool enabled = i % 2 == 0, seen = false;
            std::string text = std::to_string(i);
            uint32_t size = 0;
            if ((first ? CloudConfig::UpdateEnabled(enabled) : CloudConfig::UpdateCachesize(text)) < 0) return 1;
            if (CloudConfig::getCloudCfgFile(seen, size) != 0 || (first ? seen != enabled : size != i)) return 2;
        }
        return 0;
    });
    EXPECT_THAT(statuses, ElementsAre(0, 0));
}

TEST_F(CloudConfigTest, TheRegistryIsFoundInAnySectionAndNeverKept) {
    std::string found;
    EXPECT_EQ(0, CloudConfig::get_cloud_config_file(found));
    EXPECT_EQ(path, found);
    writeFile(registry_, "ConfigFilePath = " + (dir / "absent") + "\n");
    EXPECT_EQ(-1, CloudConfig::get_cloud_config_file(found));
    EXPECT_EQ(0, CloudConfig::InitCloudCfgFile(nullptr, nullptr)) << "written with the defaults";
    EXPECT_EQ(0, CloudConfig::get_cloud_config_file(found));
    EXPECT_EQ(dir / "absent", found);
    bool enabled = true;
    uint32_t size = 9;
    EXPECT_EQ(0, CloudConfig::getCloudCfgFile(enabled, size));
    EXPECT_TRUE(!enabled && size == 0);
    EXPECT_EQ(0, CloudConfig::InitCloudCfgFile(nullptr, path.c_str()));
    EXPECT_THAT(readFile(registry_), HasSubstr("[CloudConfig]\nConfigFilePath=" + path + "\n"));
    EXPECT_EQ(kFull, readFile(path)) << "what is there stays";
    writeFile(registry_, "[CloudConfig]\n");
    EXPECT_EQ(-1, CloudConfig::InitCloudCfgFile("/proc/none/registry", path.c_str())) << "cannot be written";
    EXPECT_EQ(-1, CloudConfig::InitCloudCfgFile(registry_.c_str(), nullptr));
    EXPECT_EQ(0, InifileFlushAll());
    EXPECT_EQ("[CloudConfig]\n", readFile(registry_)) << "no default was planted";
    log.clear();
    EXPECT_EQ(-1, CloudConfig::UpdateEnabled(enabled));
    EXPECT_FALSE(CloudConfig::is_cloud_direct_enabled());
    EXPECT_THAT(log.lines(), ElementsAre("4 UpdateEnabled: Failed to get config file"));
}
