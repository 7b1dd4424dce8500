// A test case in a private home with nothing cached, where a stand-in local
// client publishes its URL and key files.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "FileSystem.h"
#include "KestrixApp.h"
#include "KestrixSim.h"
#include "ScopedEnv.h"
#include "TempDir.h"

class ClientHomeTest : public ::testing::Test {
protected:
    void SetUp() override {
        _env.privateHome(_home.path());
        Kestrix::Web::FileSystem::resetCache();
        Kestrix::Web::KestrixApp::resetCache();
    }
    void TearDown() override {
        Kestrix::Web::FileSystem::resetCache();
        Kestrix::Web::KestrixApp::resetCache();
    }
    bool startSim(CorvaneTest::KestrixSim& sim, const std::vector<std::string>& args = {}) {
        return sim.start({args, _home.path()});
    }

    CorvaneTest::TempDir _home;
    CorvaneTest::ScopedEnv _env;
};
