#include "TransferStore.h"

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <system_error>

#include "JsonWriter.h"
#include "Uuid.h"

namespace Kestrix::Sim {

namespace fs = std::filesystem;

namespace {

const char kFileScheme[] = "file://";

// A local path from "file:///x" or "/x"; "" for anything else (http:// and the like).
std::string localPath(const std::string& text) {
    std::string path = text;
    if (path.compare(0, sizeof(kFileScheme) - 1, kFileScheme) == 0)
        path = path.substr(sizeof(kFileScheme) - 1);
    return !path.empty() && path[0] == '/' ? path : "";
}

std::string lastName(const std::string& path) {
    fs::path p = fs::path(path).lexically_normal();
    if (!p.has_filename()) p = p.parent_path();
    return p.filename().string();
}

}  // namespace

struct TransferStore::Transfer {
    std::string id;
    TransferOrder order;
    std::string status = "queued";  // queued, running, completed, failed, cancelled
    std::string error;
    unsigned long long filesExpected = 0;
    unsigned long long filesCompleted = 0;
    unsigned long long bytesExpected = 0;
    unsigned long long bytesWritten = 0;
    unsigned long long changed = 0;  // the change counter at its last change
    bool finished = false;
};

struct TransferStore::CopyStep {
    fs::path source;
    fs::path target;
    bool directory = false;
    unsigned long long size = 0;
};

TransferStore::TransferStore(size_t chunkBytes, int chunkDelayMs, bool quiet)
    : _chunkBytes(chunkBytes), _chunkDelayMs(chunkDelayMs), _quiet(quiet), _runTag(newUuid().substr(0, 8)) {}

TransferStore::~TransferStore() {
    stop();
}

void TransferStore::start(const TransferOrder& order, JsonWriter& json) {
    auto transfer = std::make_shared<Transfer>();
    transfer->id = newUuid();
    transfer->order = order;
    std::lock_guard<std::mutex> lock(_mutex);
    reapFinishedThreads();
    transfer->changed = ++_changeCount;
    _transfers.push_back(transfer);
    if (_stopping) {
        transfer->status = "cancelled";
        transfer->finished = true;
        describe(*transfer, json);
        return;
    }
    describe(*transfer, json);
    _threads.emplace_back(transfer, std::thread(&TransferStore::run, this, transfer));
    if (!_quiet)
        fprintf(stderr, "kestrix-sim: transfer %s (%s) to %s\n", transfer->id.c_str(),
                order.direction.c_str(), order.destination.c_str());
}

std::string TransferStore::activity(const std::string& token) const {
    std::lock_guard<std::mutex> lock(_mutex);
    // Only a token of this run that is not ahead of the counter limits the list.
    unsigned long long since = 0;
    bool limited = false;
    const std::string prefix = _runTag + "-";
    if (token.compare(0, prefix.size(), prefix) == 0 && token.size() > prefix.size()) {
        const std::string digits = token.substr(prefix.size());
        if (digits.find_first_not_of("0123456789") == std::string::npos && digits.size() < 20) {
            since = std::stoull(digits);
            limited = since <= _changeCount;
        }
    }
    JsonWriter json;
    json.openMap();
    json.field("iteration_token", prefix + std::to_string(_changeCount));
    json.key("transfers");
    json.openArray();
    for (const auto& transfer : _transfers) {
        if (!limited || transfer->changed > since) describe(*transfer, json);
    }
    json.closeArray();
    json.closeMap();
    return json.text();
}

void TransferStore::describeAll(JsonWriter& json) const {
    std::lock_guard<std::mutex> lock(_mutex);
    json.openArray();
    for (const auto& transfer : _transfers) describe(*transfer, json);
    json.closeArray();
}

void TransferStore::stop() {
    std::vector<std::pair<std::shared_ptr<Transfer>, std::thread>> threads;
    {
        std::lock_guard<std::mutex> lock(_mutex);
        _stopping = true;
        threads.swap(_threads);
    }
    _stopCondition.notify_all();
    for (auto& entry : threads) entry.second.join();
}

void TransferStore::run(std::shared_ptr<Transfer> transfer) {
    {
        std::lock_guard<std::mutex> lock(_mutex);
        transfer->status = "running";
        transfer->changed = ++_changeCount;
    }
    std::vector<CopyStep> steps;
    std::string error;
    if (!plan(*transfer, steps, error)) {
        finish(*transfer, "failed", error);
        return;
    }
    for (const auto& step : steps) {
        if (!copyFile(*transfer, step, error)) {
            finish(*transfer, error.empty() ? "cancelled" : "failed", error);
            return;
        }
    }
    finish(*transfer, "completed", "");
}

bool TransferStore::plan(Transfer& transfer, std::vector<CopyStep>& steps, std::string& error) {
    const std::string destination = localPath(transfer.order.destination);
    if (destination.empty()) {
        error = "Destination is not a local folder: " + transfer.order.destination;
        return false;
    }
    unsigned long long files = 0, bytes = 0;
    std::error_code code;
    for (const auto& item : transfer.order.items) {
        const std::string source = localPath(item.source);
        if (source.empty()) {
            error = "Source is not a local path: " + item.source;
            return false;
        }
        const fs::path target =
            fs::path(destination) / (item.targetName.empty() ? lastName(source) : item.targetName);
        fs::file_status status = fs::status(source, code);
        if (fs::is_regular_file(status)) {
            CopyStep step{source, target, false, fs::file_size(source, code)};
            steps.push_back(step);
            bytes += step.size;
            ++files;
        } else if (fs::is_directory(status)) {
            steps.push_back({source, target, true, 0});
            for (fs::recursive_directory_iterator it(source, code), end; !code && it != end;
                 it.increment(code)) {
                CopyStep step{it->path(), target / it->path().lexically_relative(source),
                              it->is_directory(code), 0};
                if (!step.directory) {
                    if (!it->is_regular_file(code)) continue;
                    step.size = it->file_size(code);
                    bytes += step.size;
                    ++files;
                }
                steps.push_back(step);
            }
            if (code) {
                error = "Cannot read folder " + source + ": " + code.message();
                return false;
            }
        } else {
            error = "No such file or folder: " + source;
            return false;
        }
    }
    std::lock_guard<std::mutex> lock(_mutex);
    transfer.filesExpected = files;
    transfer.bytesExpected = bytes;
    transfer.changed = ++_changeCount;
    return true;
}

bool TransferStore::copyFile(Transfer& transfer, const CopyStep& step, std::string& error) {
    std::error_code code;
    if (step.directory) {
        fs::create_directories(step.target, code);
        if (code) error = "Cannot create folder " + step.target.string() + ": " + code.message();
        return !code;
    }
    fs::create_directories(step.target.parent_path(), code);
    if (code) {
        error = "Cannot create folder " + step.target.parent_path().string() + ": " + code.message();
        return false;
    }
    // Copying a file onto itself would truncate it: count it as done instead.
    if (fs::exists(step.target, code) && fs::equivalent(step.source, step.target, code)) {
        std::lock_guard<std::mutex> lock(_mutex);
        transfer.bytesWritten += step.size;
        ++transfer.filesCompleted;
        transfer.changed = ++_changeCount;
        return true;
    }
    std::ifstream in(step.source, std::ios::binary);
    std::ofstream out(step.target, std::ios::binary | std::ios::trunc);
    if (!in || !out) {
        error = std::string("Cannot ") +
                (!in ? "read " + step.source.string() : "write " + step.target.string()) + ": " +
                strerror(errno);
        return false;
    }
    std::vector<char> buffer(_chunkBytes);
    for (;;) {
        in.read(buffer.data(), static_cast<std::streamsize>(buffer.size()));
        std::streamsize got = in.gcount();
        if (got > 0) {
            out.write(buffer.data(), got);
            out.flush();
            if (!out) {
                error = "Cannot write " + step.target.string();
                return false;
            }
            std::lock_guard<std::mutex> lock(_mutex);
            transfer.bytesWritten += static_cast<unsigned long long>(got);
            transfer.changed = ++_changeCount;
        }
        if (!in) {
            if (!in.eof()) {
                error = "Cannot read " + step.source.string();
                return false;
            }
            break;
        }
        if (!pause()) return false;  // stopping: cancelled, error stays empty
    }
    std::lock_guard<std::mutex> lock(_mutex);
    ++transfer.filesCompleted;
    transfer.changed = ++_changeCount;
    return true;
}

void TransferStore::finish(Transfer& transfer, const std::string& status, const std::string& error) {
    std::lock_guard<std::mutex> lock(_mutex);
    transfer.status = status;
    transfer.error = error;
    transfer.finished = true;
    transfer.changed = ++_changeCount;
    if (!_quiet)
        fprintf(stderr, "kestrix-sim: transfer %s %s%s%s\n", transfer.id.c_str(), status.c_str(),
                error.empty() ? "" : ": ", error.c_str());
}

bool TransferStore::pause() {
    std::unique_lock<std::mutex> lock(_mutex);
    if (_chunkDelayMs > 0)
        _stopCondition.wait_for(lock, std::chrono::milliseconds(_chunkDelayMs), [this] { return _stopping; });
    return !_stopping;
}

void TransferStore::describe(const Transfer& transfer, JsonWriter& json) const {
    json.openMap();
    json.field("id", transfer.id);
    json.field("direction", transfer.order.direction);
    json.field("status", transfer.status);
    json.field("sources", transfer.order.sources());
    json.field("destination", transfer.order.destination);
    json.field("files_expected", static_cast<long long>(transfer.filesExpected));
    json.field("files_completed", static_cast<long long>(transfer.filesCompleted));
    json.field("bytes_expected", static_cast<long long>(transfer.bytesExpected));
    json.field("bytes_written", static_cast<long long>(transfer.bytesWritten));
    long long percentage = transfer.status == "completed" ? 100 : 0;
    if (transfer.bytesExpected > 0 && transfer.status != "completed")
        percentage = static_cast<long long>(transfer.bytesWritten * 100 / transfer.bytesExpected);
    json.field("percentage", percentage);
    if (!transfer.error.empty()) json.field("error_message", transfer.error);
    json.closeMap();
}

void TransferStore::reapFinishedThreads() {
    for (auto it = _threads.begin(); it != _threads.end();) {
        if (it->first->finished) {
            // finish() has run; the thread is at most returning.
            it->second.join();
            it = _threads.erase(it);
        } else {
            ++it;
        }
    }
}

}  // namespace Kestrix::Sim
