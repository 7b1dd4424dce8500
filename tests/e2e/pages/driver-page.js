// The page's side of driver.sh: a request is one "DRIVE: ..." console line,
// the answer a file in the private home, whose path the page gets in its URL
// ("~/" paths are in it, and the compared lines show it as "~").
var Driver = (function () {
    "use strict";

    var match = /[?&]home=([^&]*)/.exec(location.search);
    var home = match ? decodeURIComponent(match[1]) : "";
    var counter = 0;

    function path(text) {
        return text === "~" || text.indexOf("~/") === 0 ? home + text.substring(1) : text;
    }

    function answerOf(id) {
        var request = new XMLHttpRequest();
        try {
            request.open("GET", "file://" + home + "/.e2e-driver/" + id + "?" + Date.now(), false);
            request.send(null);
        } catch (e) {
            return "";
        }
        return (request.responseText || "").replace(/\n$/, "");
    }

    function readFile(text) {
        var request = new XMLHttpRequest();
        request.open("GET", "file://" + path(text) + "?" + Date.now(), false);
        request.send(null);
        return request.responseText;
    }
    // What kestrix-sim --record sim-record.txt received, request by request.
    function recorded() {
        var record = readFile("~/sim-record.txt");
        var requests = [];
        var header = /--- kestrix-sim request \d+: (\d+) bytes ---\n/g;
        var match;
        while ((match = header.exec(record))) requests.push(record.substr(header.lastIndex, Number(match[1])));
        return requests;
    }
    function transfers(plugin) {
        return JSON.parse(plugin.kestrixHttpRequest("GET", "/sim/state", "")).transfers;
    }
    // Returns the request's id at once, without waiting for the answer.
    function request(command) {
        if (!home) {
            E2E.fail("no ?home= in the page's URL: register the page with DRIVER");
            throw new Error("no driver");
        }
        counter += 1;
        var id = "r" + counter;
        var fields = [id].concat(Array.prototype.slice.call(arguments));
        console.log("DRIVE: " + fields.join("|"));
        return id;
    }

    function await_(id, ms, then) {
        var answer = "";
        E2E.waitFor("the driver's answer to " + id, ms, function () {
            answer = answerOf(id);
            return answer !== "";
        }, function () {
            if (answer === "ok" || answer.indexOf("ok ") === 0) {
                then(answer.substring(3));
            } else {
                E2E.fail("the driver: " + answer);
            }
        });
    }

    // The last argument is called with the answer's value.
    function act() {
        var args = Array.prototype.slice.call(arguments);
        var then = args.pop();
        await_(request.apply(null, args), 30000, then);
    }

    // Each step is called with the function that starts the next.
    function run(steps) {
        act("hello", function () {
            var index = 0;
            (function next() {
                if (index < steps.length) steps[index++](next);
                else E2E.pass();
            })();
        });
    }
    return { run: run, path: path, readFile: readFile, recorded: recorded,
        transfers: transfers, request: request, await: await_, act: act };
})();
