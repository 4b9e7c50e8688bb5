#include <jansson.h>

#include <vex/cloud_config.h>
#include <vex/inifile.h>

#include "support/test.h"

namespace {

using testing::ElementsAre;

constexpr char kFull[] =
    R"({"settings": {"enabled": true, "StoragePath": "/s", "CacheSizeGB": 5, "MaxFileSizeMB": 6,
        "MaxDCUploadBatchNumber": 7, "OutputSegmentsHistory": true}, "other": 1})";

class CloudConfigTest : public testing::Test {
protected:
    CloudConfigTest() {
        setenv("ZQREGISTRY", registry_.c_str(), 1);
        vextest::writeFile(registry_, "[Other]\nConfigFilePath = " + file_ + "\n");
        vextest::writeFile(file_, kFull);
    }
    ~CloudConfigTest() override {
        unsetenv("ZQREGISTRY");
        InifileReleaseAll();
    }
    /// The failure of loading @p settings.
    std::vector<std::string> load(const std::string &settings) {
        log_.clear();
        vextest::writeFile(file_, settings);
        CloudConfig config;
        EXPECT_EQ(-1, config.initFromConfigFile(file_.c_str())) << settings;
        EXPECT_TRUE(!config.item.enabled && *config.path == '\0') << "nothing changed";
        return log_.lines();
    }
    vextest::TempDir dir_;
    const std::string registry_ = dir_ / "registry", file_ = dir_ / "cloud.json";
    vextest::LogCapture log_;
};

TEST_F(CloudConfigTest, LoadsWholeFilesAndNamesWhatIsMissing) {
    CloudConfig config;
    ASSERT_EQ(0, config.initFromConfigFile(file_.c_str()));
    EXPECT_TRUE(config.item.enabled && config.item.StoragePath == "/s" && config.item.CacheSizeGB == 5 &&
                config.item.MaxFileSizeMB == 6 && config.item.MaxDCUploadBatchNumber == 7 &&
                config.item.OutputSegmentsHistory);
    vextest::writeFile(file_, R"({"settings": {"enabled": true, "StoragePath": "", "CacheSizeGB": 4294967295,
        "MaxFileSizeMB": 0, "OutputSegmentsHistory": 1}})");
    ASSERT_EQ(0, config.initFromConfigFile(file_.c_str()));
    EXPECT_TRUE(config.item.MaxDCUploadBatchNumber == 32 && !config.item.OutputSegmentsHistory) << "back to defaults";
    const std::string failed = "32 loadFromJsonObject: load json object failed.";
    const std::string first = R"("enabled": true, "StoragePath": "", )";
    const std::pair<const char *, std::string> rows[] = {{"enabled is not bool.", R"("enabled": 1)"},
        {"enabled is not bool.", ""}, {"StoragePath is not a string.", R"("enabled": true)"},
        {"CacheSizeGB is not an integer.", first + R"("CacheSizeGB": 1.0)"},
        {"MaxFileSizeMB is not an integer.", first + R"("CacheSizeGB": 1, "MaxFileSizeMB": 4294967296)"},
        {"MaxDCUploadBatchNumber is not an integer.",
            first + R"("CacheSizeGB": 1, "MaxFileSizeMB": 1, "MaxDCUploadBatchNumber": "x")"}};
    for (const auto &[text, members] : rows)
        EXPECT_THAT(
            load("{\"settings\": {" + members + "}}"), ElementsAre(std::string("32 loadFromJson: ") + text, failed));
    EXPECT_THAT(load("{}"), ElementsAre("32 loadFromJson: enabled is not bool.", failed));
    EXPECT_THAT(load("[]"), ElementsAre("32 loadFromJsonObject: it is not an json object."));
    EXPECT_THAT(load("{\n\"a\" 1}"),
        ElementsAre("32 initFromConfigFile: Load JSON file " + file_ + " error: on line 2: ':' expected near '1'."));
    EXPECT_FAILS(ENOENT, -1, config.initFromConfigFile((dir_ / "absent").c_str()));
}

TEST_F(CloudConfigTest, UpdatesRewriteTheFileOnlyWhenSomethingChanges) {
    struct stat before {
    }, after{};
    stat(file_.c_str(), &before);
    bool enabled = true;
    std::string size = "5";
    EXPECT_EQ(1, CloudConfig::UpdateEnabled(enabled));
    EXPECT_EQ(1, CloudConfig::UpdateCachesize(size));
    stat(file_.c_str(), &after);
    EXPECT_EQ(before.st_ino, after.st_ino);
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
        vextest::readFile(file_));
    enabled = true, size = "";
    EXPECT_EQ(0, CloudConfig::getCloudCfgFile(enabled, size));
    EXPECT_TRUE(!enabled && size == "4294967295" && !CloudConfig::is_cloud_direct_enabled());
    for (std::string bad : {"", "x", "5x", " 5", "-1", "4294967296"}) {
        EXPECT_EQ(-1, CloudConfig::UpdateCachesize(bad)) << bad;
        EXPECT_EQ(bad == "4294967296" ? ERANGE : EINVAL, errno);
    }
    const std::string content = vextest::readFile(file_);
    log_.clear();
    enabled = true;
    const vextest::FaultScope fault("rename", 1, EROFS);
    EXPECT_EQ(-1, CloudConfig::UpdateEnabled(enabled));
    EXPECT_THAT(log_.lines(),
        ElementsAre("30 saveConfigFile: failed to write config file(" + file_ + ")", "30 failed to save cfg file"));
    EXPECT_EQ(content, vextest::readFile(file_));
}

TEST_F(CloudConfigTest, TheRegistryIsFoundInAnySectionAndNeverKept) {
    std::string path;
    EXPECT_EQ(0, CloudConfig::get_cloud_config_file(path));
    EXPECT_EQ(file_, path);
    vextest::writeFile(registry_, "ConfigFilePath = " + (dir_ / "absent") + "\n");
    EXPECT_EQ(-1, CloudConfig::get_cloud_config_file(path));
    EXPECT_EQ(0, CloudConfig::InitCloudCfgFile(nullptr, nullptr)) << "written with the defaults";
    EXPECT_EQ(0, CloudConfig::get_cloud_config_file(path));
    EXPECT_EQ(dir_ / "absent", path);
    bool enabled = true;
    uint32_t size = 9;
    EXPECT_EQ(0, CloudConfig::getCloudCfgFile(enabled, size));
    EXPECT_TRUE(!enabled && size == 0);
    EXPECT_EQ(0, CloudConfig::InitCloudCfgFile(nullptr, file_.c_str()));
    EXPECT_THAT(vextest::readFile(registry_), testing::HasSubstr("[CloudConfig]\nConfigFilePath=" + file_ + "\n"));
    EXPECT_EQ(kFull, vextest::readFile(file_)) << "what is there stays";
    vextest::writeFile(registry_, "[CloudConfig]\n");
    EXPECT_EQ(-1, CloudConfig::InitCloudCfgFile(registry_.c_str(), nullptr));
    EXPECT_EQ(0, InifileFlushAll());
    EXPECT_EQ("[CloudConfig]\n", vextest::readFile(registry_)) << "no default was planted";
    log_.clear();
    EXPECT_EQ(-1, CloudConfig::UpdateEnabled(enabled));
    EXPECT_FALSE(CloudConfig::is_cloud_direct_enabled());
    EXPECT_THAT(log_.lines(), ElementsAre("4 UpdateEnabled: Failed to get config file"));
}

}  // namespace
