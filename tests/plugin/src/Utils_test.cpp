#include "Utils.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <time.h>
#include <utime.h>

#include <memory>
#include <stdexcept>

#include "ClientTestSupport.h"
#include "FileSystem.h"
#include "HttpRequest.h"
#include "KestrixApp.h"
#include "ScopedEnv.h"
#include "TempDir.h"
#include "cv_log.h"

using CorvaneTest::LogFileCapture;
using CorvaneTest::ScopedEnv;
using CorvaneTest::TempDir;
using Kestrix::Web::FileSystem;
using Kestrix::Web::HttpRequest;
using Kestrix::Web::KestrixApp;
using Kestrix::Web::Utils;

namespace {

// A private home whose client data folder may hold a URL file.
class UtilsTest : public ::testing::Test {
protected:
    void SetUp() override {
        _env.privateHome(_home.path());
        FileSystem::resetCache();
        KestrixApp::resetCache();
    }
    void TearDown() override {
        KestrixApp::resetCache();
        FileSystem::resetCache();
    }
    void writeUrlFile(const std::string& text) {
        _home.write(".local/share/Corvane/Corvane Kestrix/var/run/http.uri", text);
    }
    std::string headerValue(const HttpRequest& request, const std::string& name) {
        auto it = request.headers().find(name);
        return it == request.headers().end() ? "<none>" : it->second;
    }

    TempDir _home;
    ScopedEnv _env;
};

const time_t kNov2nd2015 = 1446458400;  // Mon Nov  2 10:00:00 2015 UTC

void setModified(const std::string& path, time_t when) {
    struct utimbuf times = {when, when};
    ASSERT_EQ(0, utime(path.c_str(), &times));
}

}  // namespace

TEST(UtilsJson, ToJsonStrQuotesEachItemWithoutEscaping) {
    EXPECT_EQ("[\"a\",\"b\"]", Utils::toJsonStr({"a", "b"}));
    EXPECT_EQ("[]", Utils::toJsonStr({}));
    EXPECT_EQ("[\"a\"b\"]", Utils::toJsonStr({"a\"b"}));
}

TEST(UtilsText, ErrorCodesAndContentTypes) {
    EXPECT_EQ("No such file or directory", Utils::errorCodeToStr(2));
    EXPECT_EQ("End or directory reached", Utils::errorCodeToStr(28678));
    EXPECT_EQ("application/vnd.corvane.xferreq+json", Utils::contentTypeText(Kestrix::Web::kContentTypeJson));
    EXPECT_EQ("application/vnd.corvane.xferreq+xml", Utils::contentTypeText(Kestrix::Web::kContentTypeXml));
    EXPECT_EQ("", Utils::setCurrentDirToUserHome());
}

TEST(UtilsText, ExceptionsAreLoggedAsErrors) {
    LogFileCapture log;
    Utils::logException(std::runtime_error("boom"));
    Utils::logException("PlugIn::init", std::runtime_error("bang"));
    EXPECT_TRUE(log.has("ERR boom")) << log.text();
    EXPECT_TRUE(log.has("ERR PlugIn::init: bang"));
}

TEST_F(UtilsTest, NoRequestWithoutAClientUrl) {
    EXPECT_EQ(nullptr, Utils::createHttpRequest(Kestrix::Web::kContentTypeJson));
    EXPECT_EQ(nullptr,
              Utils::createHttpRequest("GET", "/v4/kestrix/version", "", Kestrix::Web::kContentTypeXml));

    writeUrlFile("not a url\nkey\n");
    KestrixApp::resetCache();
    EXPECT_EQ(nullptr, Utils::createHttpRequest(Kestrix::Web::kContentTypeJson)) << "a URL without a host";
}

TEST_F(UtilsTest, RequestTakesHostPortTypeAndKeyFromTheClientFiles) {
    writeUrlFile("http://127.0.0.1:4567\nd1c1a8e0-0000-4000-8000-000000000001\n");

    std::unique_ptr<HttpRequest> json(Utils::createHttpRequest(Kestrix::Web::kContentTypeJson));
    ASSERT_NE(nullptr, json);
    EXPECT_EQ("127.0.0.1", json->host);
    EXPECT_EQ(4567, json->port);
    EXPECT_EQ("GET", json->method);
    EXPECT_EQ("application/vnd.corvane.xferreq+json", headerValue(*json, "Content-Type"));
    EXPECT_EQ("d1c1a8e0-0000-4000-8000-000000000001\n", headerValue(*json, "Authorization-key"));

    std::unique_ptr<HttpRequest> xml(
        Utils::createHttpRequest("POST", "/transfers/", "<xferreq/>", Kestrix::Web::kContentTypeXml));
    ASSERT_NE(nullptr, xml);
    EXPECT_EQ("POST", xml->method);
    EXPECT_EQ("/transfers/", xml->path);
    EXPECT_EQ("<xferreq/>", xml->data());
    EXPECT_EQ("application/vnd.corvane.xferreq+xml", headerValue(*xml, "Content-Type"));
}

TEST_F(UtilsTest, UrlWithoutPortGivesPortZero) {
    writeUrlFile("http://localhost\nkey");
    std::unique_ptr<HttpRequest> request(Utils::createHttpRequest(Kestrix::Web::kContentTypeJson));
    ASSERT_NE(nullptr, request);
    EXPECT_EQ(0, request->port);
}

TEST_F(UtilsTest, ExtendedObjectDescribesFilesAndFolders) {
    _env.set("TZ", "UTC");
    tzset();
    TempDir dir;
    const std::string file = dir.write("a.txt", "hello world\n");
    const std::string folder = dir.mkdir("photos");
    setModified(file, kNov2nd2015);
    setModified(folder, kNov2nd2015 + 60);

    EXPECT_EQ("{\"dataTransfer\":{\"files\":[{\"lastModifiedDate\":\"Mon Nov  2 10:00:00 2015\",\"name\":\"" +
                  file + "\",\"size\":12,\"type\":\"text/plain\"}]}}",
              Utils::createExtendedObject({file}));

    EXPECT_EQ(
        "{\"dataTransfer\":{\"files\":[{\"lastModifiedDate\":\"Mon Nov  2 10:00:00 2015\",\"name\":\"" +
            file +
            "\",\"size\":12,\"type\":\"text/plain\"},{\"lastModifiedDate\":\"Mon Nov  2 10:01:00 2015\","
            "\"name\":\"" +
            folder + "\",\"size\":0,\"type\":\"text/directory\"}]}}",
        Utils::createExtendedObject({file, folder}));

    EXPECT_EQ("{\"dataTransfer\":{\"files\":[]}}", Utils::createExtendedObject({}));
}

TEST_F(UtilsTest, ExtendedObjectOfAVanishedFileUsesZeroes) {
    _env.set("TZ", "UTC");
    tzset();
    TempDir dir;
    const std::string gone = dir.file("gone.png");
    EXPECT_EQ("{\"dataTransfer\":{\"files\":[{\"lastModifiedDate\":\"Thu Jan  1 00:00:00 1970\",\"name\":\"" +
                  gone + "\",\"size\":0,\"type\":\"image/png\"}]}}",
              Utils::createExtendedObject({gone}));
}

TEST_F(UtilsTest, MimeTypeOfAFolderIsTextDirectory) {
    cv_stat_t folder = {};
    folder.type = CV_FTYPE_DIR;
    EXPECT_EQ("text/directory", Utils::getMimeType("/x/y.txt", folder));
    cv_stat_t file = {};
    file.type = CV_FTYPE_REG;
    EXPECT_EQ("text/plain", Utils::getMimeType("/x/y.txt", file));
    EXPECT_EQ("", Utils::getMimeType("/x/y", file));
}

TEST_F(UtilsTest, LogInitCreatesAPrivateLogFolderAndLogsDebugLines) {
    const std::string folder = _home.path() + "/.local/state/Corvane";
    struct stat st;
    ASSERT_NE(0, stat(folder.c_str(), &st));

    Utils::logInit();
    EXPECT_EQ(3u, cv_dbg_get_all());
    cv_dbg("debug line from the test");
    Utils::logInit();  // a second call changes nothing
    Utils::logCleanup();
    Utils::logCleanup();
    cv_dbg_set(0);
    cv_dbg_set_all(0);

    ASSERT_EQ(0, stat(folder.c_str(), &st));
    EXPECT_TRUE(S_ISDIR(st.st_mode));
    EXPECT_EQ(0700u, st.st_mode & 0777u);
    const std::string text = CorvaneTest::readFile(FileSystem::logPath());
    EXPECT_NE(std::string::npos, text.find("DBG debug line from the test")) << text;
}
