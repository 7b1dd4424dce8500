// @ts-check
/// <reference path="../types/corvane-web.d.ts" />
// The demo page's script: asks the plug-in for its versions, starts a
// session, forwards requests to Corvane Kestrix, starts transfers and lists
// the transfer events. Every step shows its result on the page and prints a
// "DEMO: " line on the console; the page ends with a verdict line, which
// makes corvane-browser exit 0 (passed) or 1 (problems).
//
// Open it as demo/index.html?home=FOLDER to let it copy FOLDER/demo-files/
// remote/sample.bin into FOLDER/Downloads through Corvane Kestrix (`make demo`
// does); without it the copy is skipped.

/**
 * Whether a parsed result is the plug-in's error document.
 * @param {unknown} value
 * @returns {value is CorvaneWeb.ErrorDocument}
 */
function isCorvaneWebError(value) {
    if (typeof value !== "object" || value === null) return false;
    const error = /** @type {{error?: unknown}} */ (value).error;
    if (typeof error !== "object" || error === null) return false;
    const fields = /** @type {{code?: unknown, user_message?: unknown}} */ (error);
    return fields.code === -1 && typeof fields.user_message === "string";
}

(function () {
    "use strict";

    const kErrorOpening = '{"error":{"code":-1,"user_message":"';
    const kDeadlineMs = 20000;
    const kEventsShown = 6;

    const startedAt = Date.now();
    /** @type {string[]} */
    const problems = [];
    let verdictGiven = false;
    let eventCount = 0;
    let versionsAnswered = false;
    /** The id of the copy started below, once Corvane Kestrix has answered. */
    let copyId = "";
    /** "skipped", "waiting", "completed" or "failed". */
    let copyState = "skipped";

    /** @param {string} id */
    function element(id) {
        const found = document.getElementById(id);
        if (!found) throw new Error("the page has no element #" + id);
        return found;
    }

    /** @param {string} line */
    function say(line) {
        console.log("DEMO: " + line);
    }

    /** @param {string} text */
    function problem(text) {
        problems.push(text);
        const item = document.createElement("li");
        item.textContent = text;
        element("problem-list").appendChild(item);
        element("problems").hidden = false;
        say("problem: " + text);
    }

    /**
     * Adds a call and its result to a list and gives the result's element.
     * @param {string} listId
     * @param {string} call
     * @param {string} result
     * @param {"ok" | "error" | "pending"} kind
     */
    function row(listId, call, result, kind) {
        const item = document.createElement("li");
        const callText = document.createElement("span");
        callText.className = "call";
        callText.textContent = call;
        callText.title = call;
        const resultText = document.createElement("span");
        item.appendChild(callText);
        item.appendChild(resultText);
        element(listId).appendChild(item);
        setResult(resultText, result, kind);
        return resultText;
    }

    /**
     * @param {HTMLElement} target
     * @param {string} result
     * @param {"ok" | "error" | "pending"} kind
     */
    function setResult(target, result, kind) {
        target.className = "result " + kind;
        target.textContent = result;
        target.title = result;
    }

    /**
     * Parses a result that may be JSON; the plug-in's error document may not
     * be valid JSON (its message is not escaped), so it is recognised by its
     * opening too.
     * @param {string} text
     * @returns {{value: unknown, error: string | null}}
     */
    function readResult(text) {
        /** @type {unknown} */
        let value = null;
        try {
            value = JSON.parse(text);
        } catch (e) {
            if (typeof text === "string" && text.indexOf(kErrorOpening) === 0)
                return { value: null, error: text.slice(kErrorOpening.length).replace(/"\}\}$/, "") };
            return { value: null, error: null };
        }
        return { value: value, error: isCorvaneWebError(value) ? value.error.user_message : null };
    }

    /**
     * Calls the plug-in, or the extension's object whose answers are
     * Promises, and gives a Promise of the outcome; a script error or a
     * rejection (wrong arguments, or nothing there) becomes a problem.
     * (Promise chains, not async functions: QtWebKit does not know those.)
     * @template T
     * @param {string} what
     * @param {() => T | Promise<T>} call
     * @returns {Promise<{threw: true} | {threw: false, value: T}>}
     */
    function attempt(what, call) {
        return new Promise(function (resolve) {
            resolve(call());
        }).then(function (value) {
            return { threw: false, value: /** @type {T} */ (value) };
        }, function (e) {
            problem(what + " threw: " + e);
            return /** @type {{threw: true}} */ ({ threw: true });
        });
    }

    /**
     * Runs the steps one after the other, each once the one before has ended.
     * @param {Array<() => unknown>} steps
     * @returns {Promise<unknown>}
     */
    function inTurn(steps) {
        /** @type {Promise<unknown>} */
        const start = Promise.resolve();
        return steps.reduce(function (previous, step) {
            return previous.then(step);
        }, start);
    }

    /** @param {string} query */
    function homeFromQuery(query) {
        const match = /(?:^\?|&)home=([^&]*)/.exec(query);
        return match ? decodeURIComponent(match[1]).replace(/\/+$/, "") : "";
    }

    function finishIfDone() {
        if (verdictGiven) return;
        const copyDone = copyState === "skipped" || copyState === "completed" || copyState === "failed";
        const late = Date.now() - startedAt > kDeadlineMs;
        if (!late && !(versionsAnswered && eventCount >= 2 && copyDone)) return;
        if (late) {
            if (eventCount < 2) problem("fewer than two transfer events arrived in " + kDeadlineMs / 1000 + " s");
            if (!copyDone) problem("the copy did not finish in " + kDeadlineMs / 1000 + " s");
        }
        giveVerdict(problems.length + (problems.length === 1 ? " problem" : " problems"));
    }

    /** @param {string} failureTitle */
    function giveVerdict(failureTitle) {
        verdictGiven = true;
        const status = element("status");
        if (problems.length === 0) {
            status.textContent = "Passed";
            status.className = "status passed";
            console.log("VERDICT: PASS");
        } else {
            status.textContent = failureTitle;
            status.className = "status failed";
            console.log("VERDICT: FAIL " + problems.join("; "));
        }
    }

    // --- Transfer events --------------------------------------------------

    /**
     * One line about an activity report: each transfer's state.
     * @param {unknown} report
     */
    function describeActivity(report) {
        const activity = /** @type {CorvaneWeb.TransferActivityDocument} */ (report);
        const transfers = activity && Array.isArray(activity.transfers) ? activity.transfers : [];
        if (transfers.length === 0) return "no changes";
        return transfers.map(function (t) {
            const id = typeof t.id === "string" ? t.id.slice(0, 8) : "?";
            const pct = typeof t.percentage === "number" ? " " + t.percentage + "%" : "";
            return t.direction + " " + id + " " + t.status + pct;
        }).join(", ");
    }

    /**
     * @param {CorvaneWeb.TransferActivityDocument} report
     */
    function followCopy(report) {
        if (!copyId || !Array.isArray(report.transfers)) return;
        report.transfers.forEach(function (t) {
            if (t.id !== copyId || copyState !== "waiting") return;
            if (t.status === "completed") {
                copyState = "completed";
                say("the copy completed");
            } else if (t.status === "failed" || t.status === "cancelled") {
                copyState = "failed";
                problem("the copy " + t.status + ": " + (t.error_message || "no reason given"));
            }
        });
    }

    /** @type {CorvaneWeb.EventHandler} */
    function onEvent(eventName, text) {
        eventCount += 1;
        const seconds = ((Date.now() - startedAt) / 1000).toFixed(1);
        const read = readResult(text);
        const summary = eventName === "transfer" ? describeActivity(read.value) : text;
        if (eventName === "transfer" && read.value) followCopy(/** @type {CorvaneWeb.TransferActivityDocument} */ (read.value));

        const item = document.createElement("li");
        const when = document.createElement("span");
        when.className = "when";
        when.textContent = seconds + " s  " + eventName + ": ";
        const what = document.createElement("span");
        what.className = "what";
        what.textContent = summary;
        const raw = document.createElement("span");
        raw.className = "raw";
        raw.textContent = text;
        item.appendChild(when);
        item.appendChild(what);
        item.appendChild(raw);
        const list = element("events");
        list.insertBefore(item, list.firstChild);
        while (list.children.length > kEventsShown) list.removeChild(/** @type {Node} */ (list.lastChild));
        element("event-count").textContent = String(eventCount);
        if (eventCount === 1) say("transfer events arrive");
        finishIfDone();
    }

    // --- The steps ----------------------------------------------------------

    /** @param {CorvaneWeb.PluginElement} plugin */
    function showVersions(plugin) {
        /** @type {Array<[string, () => string]>} */
        const calls = [
            ["plugin.queryVersion()", function () { return plugin.queryVersion(); }],
            ["plugin.queryPluginVersion()", function () { return plugin.queryPluginVersion(); }],
            ["plugin.queryBuildVersion()", function () { return plugin.queryBuildVersion(); }],
            ["plugin.queryBrowserEngine()", function () { return plugin.queryBrowserEngine(); }],
        ];
        /** @type {Array<() => unknown>} */
        const versions = calls.map(function (entry) {
            return function () {
                return attempt(entry[0], entry[1]).then(function (result) {
                    if (result.threw) return;
                    row("versions", entry[0], result.value, "ok");
                    say(entry[0] + " = " + result.value);
                    versionsAnswered = true;
                });
            };
        });
        return inTurn(versions.concat([function () {
            return attempt("plugin.queryKestrixVersion()", function () { return plugin.queryKestrixVersion(); });
        }])).then(function (answer) {
            const outcome = /** @type {{threw: true} | {threw: false, value: string}} */ (answer);
            if (outcome.threw) return;
            const kestrix = outcome.value;
            const read = readResult(kestrix);
            if (read.error !== null) {
                row("versions", "plugin.queryKestrixVersion()", read.error, "error");
                problem("Corvane Kestrix did not answer: " + read.error);
                return;
            }
            const doc = /** @type {CorvaneWeb.KestrixVersionDocument} */ (read.value || {});
            const shown = row("versions", "plugin.queryKestrixVersion()", doc.name + " " + doc.version, "ok");
            shown.title = kestrix;
            say("Corvane Kestrix answered its version");
        });
    }

    /** @param {CorvaneWeb.PluginElement} plugin */
    function startSession(plugin) {
        const domain = location.hostname || "localhost";
        const call = 'plugin.initSession("corvane-web-demo", "' + domain + '")';
        return attempt("plugin.name = ...", function () { plugin.name = "corvane-web-demo"; }).then(function () {
            row("session", 'plugin.name = "corvane-web-demo"', "plugin.name is now " + JSON.stringify(plugin.name), "ok");
            plugin.eventHandler = onEvent;
            row("session", "plugin.eventHandler = onEvent", "set", "ok");
            return attempt(call, function () { return plugin.initSession("corvane-web-demo", domain); });
        }).then(function (answer) {
            if (answer.threw) return;
            const read = readResult(answer.value);
            row("session", call, answer.value, read.error === null ? "ok" : "error");
            if (read.error !== null) problem("the session did not start: " + read.error);
            else say("session started: " + answer.value);
        });
    }

    /** @param {CorvaneWeb.PluginElement} plugin */
    function forwardRequests(plugin) {
        const syncCall = 'plugin.kestrixHttpRequest("GET", "/v4/kestrix/version", "")';
        // The plug-in checks every body first: a page may only send files the
        // user chose, so this upload of a file nobody chose is refused here.
        const refusedBody = JSON.stringify({
            transfer_specs: [{ transfer_spec: { direction: "send", paths: [{ source: "/etc/passwd" }] } }],
        });
        const refusedCall = 'plugin.kestrixHttpRequest("POST", "/transfers/", <send /etc/passwd>)';
        const asyncCall = 'plugin.kestrixHttpRequestAsync("GET", "/v4/kestrix/version", "", callback)';
        let sentAt = 0;
        /** @type {HTMLElement | null} */
        let cell = null;
        return inTurn([
            function () {
                return attempt(syncCall, function () { return plugin.kestrixHttpRequest("GET", "/v4/kestrix/version", ""); })
                    .then(function (answer) {
                        if (answer.threw) return;
                        const read = readResult(answer.value);
                        row("requests", syncCall, answer.value, read.error === null ? "ok" : "error");
                        if (read.error !== null) problem("the forwarded request failed: " + read.error);
                        else say("forwarded request answered");
                    });
            },
            function () {
                return attempt(refusedCall, function () { return plugin.kestrixHttpRequest("POST", "/transfers/", refusedBody); })
                    .then(function (refused) {
                        if (refused.threw) return;
                        const read = readResult(refused.value);
                        row("requests", refusedCall, read.error !== null ? "refused, as it should be: " + read.error : refused.value,
                            read.error !== null ? "ok" : "error");
                        if (read.error === null) problem("an upload of a file nobody chose was not refused");
                        else say("an upload of a file nobody chose was refused");
                    });
            },
            function () {
                sentAt = Date.now();
                return attempt(asyncCall, function () {
                    return plugin.kestrixHttpRequestAsync("GET", "/v4/kestrix/version", "", function (text) {
                        const read = readResult(text);
                        const took = " (answered after " + (Date.now() - sentAt) + " ms)";
                        if (cell) setResult(cell, text + took, read.error === null ? "ok" : "error");
                        if (read.error !== null) problem("the background request failed: " + read.error);
                        else say("background request answered");
                    });
                }).then(function (queued) {
                    if (queued.threw) return;
                    cell = row("requests", asyncCall, queued.value === null ? "queued: waiting for the callback…" : queued.value,
                        queued.value === null ? "pending" : "error");
                    if (queued.value !== null) problem("the background request was refused: " + queued.value);
                });
            },
        ]);
    }

    /**
     * @param {CorvaneWeb.PluginElement} plugin
     * @param {string} home
     */
    function startTransfers(plugin, home) {
        if (!home) {
            row("transfers", "copies", "skipped: open the page as index.html?home=FOLDER (make demo does)", "pending");
            say("copies skipped: no ?home= folder given");
            return Promise.resolve();
        }
        const remote = home + "/demo-files/remote";

        // The classic download call: Corvane Kestrix is asked to fetch the
        // source and chooses the destination itself; the page hears nothing
        // back from this call.
        const source = remote + "/report.txt";
        const downloadCall = 'plugin.startDownload("' + source + '")';

        // A copy through a forwarded transfer request, whose progress the
        // transfer events then show.
        const body = JSON.stringify({
            transfer_specs: [{
                transfer_spec: {
                    direction: "receive",
                    source_root: remote,
                    destination_root: home + "/Downloads",
                    paths: [{ source: "sample.bin" }],
                },
            }],
        });
        const copyCall = 'plugin.kestrixHttpRequestAsync("POST", "/transfers/", <receive sample.bin>, callback)';
        /** @type {HTMLElement | null} */
        let cell = null;
        return attempt(downloadCall, function () { return plugin.startDownload(source); }).then(function (started) {
            if (!started.threw) {
                row("transfers", downloadCall, "posted (this call gives the page no answer)", "ok");
                say("startDownload posted");
            }
            copyState = "waiting";
            return attempt(copyCall, function () {
                return plugin.kestrixHttpRequestAsync("POST", "/transfers/", body, function (text) {
                    const read = readResult(text);
                    const doc = /** @type {{transfers?: CorvaneWeb.TransferDescription[]}} */ (read.value || {});
                    const first = Array.isArray(doc.transfers) ? doc.transfers[0] : undefined;
                    if (read.error !== null || !first || typeof first.id !== "string") {
                        copyState = "failed";
                        if (cell) setResult(cell, text, "error");
                        problem("the copy was not started: " + (read.error || text));
                        finishIfDone();
                        return;
                    }
                    copyId = first.id;
                    if (cell) setResult(cell, "started transfer " + copyId.slice(0, 8) + " into " + home + "/Downloads", "ok");
                    say("copy started");
                });
            });
        }).then(function (queued) {
            if (queued.threw) {
                copyState = "failed";
                return;
            }
            cell = row("transfers", copyCall, queued.value === null ? "queued: waiting for the callback…" : queued.value,
                queued.value === null ? "pending" : "error");
            if (queued.value !== null) {
                copyState = "failed";
                problem("the copy was refused: " + queued.value);
            }
        });
    }

    function run() {
        // In a browser without plug-ins, the Corvane Web extension's object
        // stands in for the plug-in, with Promises for answers.
        const plugin = /** @type {CorvaneWeb.PluginElement} */ (
            /** @type {unknown} */ (window.corvaneWeb) || document.getElementById("corvane"));
        if (!plugin || typeof plugin.queryVersion !== "function") {
            problem("the plug-in did not load: nothing answers for application/x-corvane-web on this page " +
                "(is the Corvane Web plug-in in the browser's plug-in folder, or the extension allowed on this site?)");
            giveVerdict("The plug-in did not load");
            return;
        }
        inTurn([
            function () { return showVersions(plugin); },
            function () { return startSession(plugin); },
            function () { return startTransfers(plugin, homeFromQuery(location.search)); },
            function () { return forwardRequests(plugin); },
        ]).then(function () {
            setInterval(finishIfDone, 500);
        });
    }

    window.addEventListener("load", run);
})();
