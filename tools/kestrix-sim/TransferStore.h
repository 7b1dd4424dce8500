// The transfers the simulator was asked for. Each one really copies its local
// source files into its local destination folder on a thread of its own, in
// chunks with a pause after each, so that progress shows in the activity feed.
//
// Every change (creation, each chunk, each finished file, the end) takes a new
// number from one change counter. The iteration token handed out with the
// activity feed is "<run tag>-<counter>"; given it back, the feed lists only
// the transfers changed since. An empty token, one from another run or one
// that is not ours lists every transfer.
#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "TransferOrder.h"

namespace Kestrix::Sim {

class JsonWriter;

class TransferStore {
public:
    TransferStore(size_t chunkBytes, int chunkDelayMs, bool quiet);
    ~TransferStore();
    TransferStore(const TransferStore&) = delete;
    TransferStore& operator=(const TransferStore&) = delete;

    // Records a transfer, starts copying, and writes its description into `json`.
    void start(const TransferOrder& order, JsonWriter& json);

    // The activity document: {"iteration_token":..,"transfers":[..]}.
    std::string activity(const std::string& token) const;

    // Every transfer as an array, for inspection.
    void describeAll(JsonWriter& json) const;

    // Cancels every copy still running and waits for the threads.
    void stop();

private:
    struct Transfer;
    struct CopyStep;

    void run(std::shared_ptr<Transfer> transfer);
    bool plan(Transfer& transfer, std::vector<CopyStep>& steps, std::string& error);
    bool copyFile(Transfer& transfer, const CopyStep& step, std::string& error);
    void finish(Transfer& transfer, const std::string& status, const std::string& error);
    bool pause();
    void describe(const Transfer& transfer, JsonWriter& json) const;  // _mutex held
    void reapFinishedThreads();                                       // _mutex held

    const size_t _chunkBytes;
    const int _chunkDelayMs;
    const bool _quiet;
    const std::string _runTag;

    mutable std::mutex _mutex;
    std::condition_variable _stopCondition;
    bool _stopping = false;
    unsigned long long _changeCount = 0;
    std::vector<std::shared_ptr<Transfer>> _transfers;
    std::vector<std::pair<std::shared_ptr<Transfer>, std::thread>> _threads;
};

}  // namespace Kestrix::Sim
