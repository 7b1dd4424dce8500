#include "Options.h"

#include <getopt.h>

#include <cerrno>
#include <climits>
#include <cstdlib>

namespace Kestrix::Sim {

namespace {

enum OptionId_e {
    kOptPort = 1000,
    kOptKey,
    kOptNoKeyNewline,
    kOptStrictKey,
    kOptVersionText,
    kOptExitReply,
    kOptRecord,
    kOptMode,
    kOptDelayMs,
    kOptModePath,
    kOptModeTimes,
    kOptExitAfterMs,
    kOptKeepFiles,
    kOptExitWithParent,
    kOptProcessName,
    kOptChunkBytes,
    kOptChunkDelayMs,
    kOptQuiet,
    kOptHelp,
};

const struct option kLongOptions[] = {
    {"port", required_argument, nullptr, kOptPort},
    {"key", required_argument, nullptr, kOptKey},
    {"no-key-newline", no_argument, nullptr, kOptNoKeyNewline},
    {"strict-key", no_argument, nullptr, kOptStrictKey},
    {"version-text", required_argument, nullptr, kOptVersionText},
    {"exit-reply", required_argument, nullptr, kOptExitReply},
    {"record", required_argument, nullptr, kOptRecord},
    {"mode", required_argument, nullptr, kOptMode},
    {"delay-ms", required_argument, nullptr, kOptDelayMs},
    {"mode-path", required_argument, nullptr, kOptModePath},
    {"mode-times", required_argument, nullptr, kOptModeTimes},
    {"exit-after-ms", required_argument, nullptr, kOptExitAfterMs},
    {"keep-files", no_argument, nullptr, kOptKeepFiles},
    {"exit-with-parent", no_argument, nullptr, kOptExitWithParent},
    {"process-name", required_argument, nullptr, kOptProcessName},
    {"chunk-bytes", required_argument, nullptr, kOptChunkBytes},
    {"chunk-delay-ms", required_argument, nullptr, kOptChunkDelayMs},
    {"quiet", no_argument, nullptr, kOptQuiet},
    {"help", no_argument, nullptr, kOptHelp},
    {nullptr, 0, nullptr, 0},
};

bool toLong(const char* text, long low, long high, long& value) {
    errno = 0;
    char* end = nullptr;
    long parsed = strtol(text, &end, 10);
    if (errno != 0 || end == text || *end != '\0' || parsed < low || parsed > high) return false;
    value = parsed;
    return true;
}

}  // namespace

const char* usageText() {
    return "usage: kestrix-sim [options]\n"
           "  --port N             listen on 127.0.0.1:N (default: an ephemeral port)\n"
           "  --key KEY            authorisation key (default: a fresh UUID)\n"
           "  --no-key-newline     no newline after the key in http.uri\n"
           "  --strict-key         the Authorization-key value must equal the key exactly\n"
           "                       (default: trailing blanks and line ends are ignored)\n"
           "  --version-text TEXT  version reported by /v4/kestrix/version\n"
           "  --exit-reply 200|403|404\n"
           "                       answer of /v4/kestrix/exit; only 200 exits\n"
           "  --record FILE        append every request, byte for byte, to FILE\n"
           "  --mode MODE          normal, slow, hang, close, no-length, garbage,\n"
           "                       zero-length, extra-bytes, bad-header, empty-body\n"
           "  --delay-ms N         wait N ms before answering\n"
           "  --mode-path PATH     misbehave only for requests to exactly PATH\n"
           "  --mode-times N       misbehave N times, then answer normally\n"
           "  --exit-after-ms N    exit by itself after N ms\n"
           "  --keep-files         leave http.uri and process.pid behind on exit\n"
           "  --exit-with-parent   exit cleanly when the starting process goes away\n"
           "  --process-name NAME  process name as /proc/PID/comm shows it\n"
           "  --chunk-bytes N      copy transfers in chunks of N bytes (default 65536)\n"
           "  --chunk-delay-ms N   pause after each chunk (default 20)\n"
           "  --quiet              no event lines on stderr\n";
}

bool parseOptions(int argc, char** argv, Options& options, std::string& error, bool& help) {
    help = false;
    optind = 1;
    opterr = 0;
    int id;
    long number = 0;
    while ((id = getopt_long(argc, argv, "", kLongOptions, nullptr)) != -1) {
        const std::string name = optind > 1 && optind - 1 < argc ? argv[optind - 1] : "";
        switch (id) {
            case kOptPort:
                if (!toLong(optarg, 0, 65535, number)) {
                    error = "invalid --port: " + std::string(optarg);
                    return false;
                }
                options.port = static_cast<unsigned short>(number);
                break;
            case kOptKey:
                options.key = optarg;
                break;
            case kOptNoKeyNewline:
                options.keyNewline = false;
                break;
            case kOptStrictKey:
                options.strictKey = true;
                break;
            case kOptVersionText:
                options.versionText = optarg;
                break;
            case kOptExitReply:
                if (!toLong(optarg, 100, 599, number) || (number != 200 && number != 403 && number != 404)) {
                    error = "invalid --exit-reply (200, 403 or 404): " + std::string(optarg);
                    return false;
                }
                options.exitReply = static_cast<int>(number);
                break;
            case kOptRecord:
                options.recordFile = optarg;
                break;
            case kOptMode:
                if (!parseMode(optarg, options.behaviour.mode)) {
                    error = "unknown --mode: " + std::string(optarg);
                    return false;
                }
                break;
            case kOptDelayMs:
                if (!toLong(optarg, 0, INT_MAX, number)) {
                    error = "invalid --delay-ms: " + std::string(optarg);
                    return false;
                }
                options.behaviour.delayMs = static_cast<int>(number);
                break;
            case kOptModePath:
                options.behaviour.path = optarg;
                break;
            case kOptModeTimes:
                if (!toLong(optarg, 1, INT_MAX, number)) {
                    error = "invalid --mode-times: " + std::string(optarg);
                    return false;
                }
                options.behaviour.times = static_cast<int>(number);
                break;
            case kOptExitAfterMs:
                if (!toLong(optarg, 0, INT_MAX, number)) {
                    error = "invalid --exit-after-ms: " + std::string(optarg);
                    return false;
                }
                options.exitAfterMs = static_cast<int>(number);
                break;
            case kOptKeepFiles:
                options.keepFiles = true;
                break;
            case kOptExitWithParent:
                options.exitWithParent = true;
                break;
            case kOptProcessName:
                options.processName = optarg;
                break;
            case kOptChunkBytes:
                if (!toLong(optarg, 1, 64L * 1024 * 1024, number)) {
                    error = "invalid --chunk-bytes: " + std::string(optarg);
                    return false;
                }
                options.chunkBytes = static_cast<size_t>(number);
                break;
            case kOptChunkDelayMs:
                if (!toLong(optarg, 0, 60000, number)) {
                    error = "invalid --chunk-delay-ms: " + std::string(optarg);
                    return false;
                }
                options.chunkDelayMs = static_cast<int>(number);
                break;
            case kOptQuiet:
                options.quiet = true;
                break;
            case kOptHelp:
                help = true;
                error = usageText();
                return false;
            default:
                error = "unknown or incomplete option: " + name;
                return false;
        }
    }
    if (optind < argc) {
        error = "unexpected argument: " + std::string(argv[optind]);
        return false;
    }
    return true;
}

}  // namespace Kestrix::Sim
