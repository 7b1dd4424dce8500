// The page's side of driver.sh, for pages that need a user: someone to
// answer the plug-in's panels, drag files or click. Load it after
// plugin-page.js; the test must be registered with DRIVER.
//
// Driver.act("choose", "Open File", "~/e2e/files/alpha.txt") prints one
// "DRIVE: ..." line, which the driver reads from the console and acts on;
// it answers through a file in the private home, which the page reads back
// (run-page.sh gives the page the home's path in its URL). Paths starting
// with "~/" are in the private home; run-page.sh prints the home's path as
// "~" in the compared lines.
var Driver = (function () {
    "use strict";

    var match = /[?&]home=([^&]*)/.exec(location.search);
    var home = match ? decodeURIComponent(match[1]) : "";
    var counter = 0;

    // The path in the private home for "~/..."; others as they are.
    function path(text) {
        return text === "~" || text.indexOf("~/") === 0 ? home + text.substring(1) : text;
    }

    // The driver's answer to request `id`, "" while there is none.
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

    // The text of the file at `text` (see path()), read afresh.
    function readFile(text) {
        var request = new XMLHttpRequest();
        request.open("GET", "file://" + path(text) + "?" + Date.now(), false);
        request.send(null);
        return request.responseText;
    }
    // The requests kestrix-sim recorded (started with --record
    // sim-record.txt), whole, in the order it got them.
    function recorded() {
        var record = readFile("~/sim-record.txt");
        var requests = [];
        var header = /--- kestrix-sim request \d+: (\d+) bytes ---\n/g;
        var match;
        while ((match = header.exec(record))) requests.push(record.substr(header.lastIndex, Number(match[1])));
        return requests;
    }
    // The transfers kestrix-sim has been asked for, through `plugin`.
    function transfers(plugin) {
        return JSON.parse(plugin.kestrixHttpRequest("GET", "/sim/state", "")).transfers;
    }
    // Asks the driver for `command` with the arguments that follow; answers
    // the request's id at once, without waiting for the driver.
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

    // Calls then(value) once the driver answered request `id` with "ok" or
    // "ok VALUE"; a failed request or no answer within ms fails the page.
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

    // request() and then await_() with a 30 s limit; the last argument is
    // the function to call with the answer's value.
    function act() {
        var args = Array.prototype.slice.call(arguments);
        var then = args.pop();
        await_(request.apply(null, args), 30000, then);
    }

    // Greets the driver, then runs steps one after the other (each is
    // called with the function that starts the next) and passes the page.
    function run(steps) {
        act("hello", function () {
            var index = 0;
            (function next() {
                if (index < steps.length) steps[index++](next);
                else E2E.pass();
            })();
        });
    }
    return {
        run: run,
        home: function () { return home; },
        path: path,
        readFile: readFile,
        recorded: recorded,
        transfers: transfers,
        request: request,
        await: await_,
        act: act,
    };
})();
