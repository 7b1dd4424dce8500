#include "Transfer.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "LogCapture.h"
#include "Messages.h"
#include "SimClientFixture.h"

using CorvaneTest::LogCapture;
using CorvaneTest::RecordedRequest;
using Kestrix::Web::kErrorKestrixRequest;
using Kestrix::Web::Transfer;

namespace {

const std::string kRoot = "<xferreq xmlns=\"urn:corvane:kestrix:xferreq\">";
const std::string kXmlType = "application/vnd.corvane.xferreq+xml";

class TransferTest : public CorvaneTest::SimClientTest {
protected:
    // Sends the transfer to the simulator and returns the one request it got.
    RecordedRequest send(Transfer& transfer) {
        EXPECT_TRUE(transfer.request());
        const std::vector<RecordedRequest> posted = requestsTo("/transfers/");
        EXPECT_EQ(1u, posted.size());
        return posted.empty() ? RecordedRequest("") : posted.front();
    }
};

TEST_F(TransferTest, DownloadIsPostedAsOneLineDocument) {
    ASSERT_TRUE(startSim()) << _sim.error();
    Transfer transfer;
    transfer.setSource("/data/a b.txt");
    transfer.setDestination("file://" + _home.path() + "/Downloads");

    const RecordedRequest request = send(transfer);
    EXPECT_EQ("POST /transfers/ HTTP/1.1", request.line);
    EXPECT_EQ(kXmlType, request.header("Content-Type"));
    EXPECT_EQ(kRoot + "<src>/data/a b.txt</src><dest>file://" + _home.path() + "/Downloads</dest></xferreq>",
              request.body);
}

TEST_F(TransferTest, UploadEscapesEverySourceAndSkipsEmptyOnes) {
    ASSERT_TRUE(startSim()) << _sim.error();
    Transfer transfer;
    transfer.setSource("/replaced/by/the/list");
    transfer.setSource(std::vector<std::string>{"/u/R&D <draft>.txt", "", "/u/it's \"quoted\".txt", ""});
    transfer.setDestination("https://files.example/in?a=1&b=<2>");

    const RecordedRequest request = send(transfer);
    EXPECT_EQ(kRoot +
                  "<src>/u/R&amp;D &lt;draft&gt;.txt</src>"
                  "<src>/u/it's \"quoted\".txt</src>"
                  "<dest>https://files.example/in?a=1&amp;b=&lt;2&gt;</dest>"
                  "</xferreq>",
              request.body);
}

TEST_F(TransferTest, SingleSourceReplacesEarlierSources) {
    ASSERT_TRUE(startSim()) << _sim.error();
    Transfer transfer;
    transfer.setSource(std::vector<std::string>{"/a", "/b"});
    transfer.setSource("/c");

    EXPECT_EQ(kRoot + "<src>/c</src></xferreq>", send(transfer).body);
}

TEST_F(TransferTest, ParametersKeepTheirUnclosedFormInKeyOrder) {
    ASSERT_TRUE(startSim()) << _sim.error();
    Transfer transfer;
    transfer.setSource("/s");
    transfer.setParam("zeta", "1");
    transfer.setParam("alpha", "x<y");
    transfer.setParam("zeta", "2");

    // The client rejects this document, but any answer counts as sent.
    EXPECT_EQ(
        kRoot + "<src>/s</src><param name=\"alpha value=\"x<y\"><param name=\"zeta value=\"2\"></xferreq>",
        send(transfer).body);
}

TEST_F(TransferTest, EmptyTransferSendsTheBareRootElement) {
    ASSERT_TRUE(startSim()) << _sim.error();
    Transfer transfer;
    transfer.setSource(std::vector<std::string>{"", ""});

    const RecordedRequest request = send(transfer);
    EXPECT_EQ(kRoot + "</xferreq>", request.body);
    EXPECT_EQ(std::to_string(request.body.size()), request.header("Content-Length"));
}

TEST_F(TransferTest, NoClientFailsWithoutSending) {
    LogCapture log;
    Transfer transfer;
    transfer.setSource("/s");

    EXPECT_FALSE(transfer.request());
    EXPECT_EQ(1u, log.count("ERR " + kErrorKestrixRequest));
}

TEST_F(TransferTest, ConnectionClosedWithoutAnswerFails) {
    ASSERT_TRUE(startSim({"--mode", "close", "--mode-path", "/transfers/"})) << _sim.error();
    LogCapture log;
    Transfer transfer;
    transfer.setSource("/s");

    EXPECT_FALSE(transfer.request());
    EXPECT_EQ(1u, requestsTo("/transfers/").size());
    EXPECT_EQ(1u, log.count("ERR " + kErrorKestrixRequest));
}

}  // namespace
