// Shared by the end-to-end pages that drive the Corvane Web plug-in.
//
// A page prints each result as one "E2E: <what> -> <result>" line; the test
// compares those lines with the page's expected text. Results are printed as
// they are when they are one-line strings, JSON-quoted ("json:" prefix) when
// they span lines, and as (undefined), (null), (number 5)... otherwise. The
// page's own verdict only says whether it ran to its end: the values are
// judged by the comparison.
var E2E = (function () {
    "use strict";

    var finished = false;

    function print(text) {
        console.log("E2E: " + text);
    }

    function describe(value) {
        if (typeof value === "string")
            return value.indexOf("\n") < 0 && value.indexOf("\r") < 0 ? value : "json:" + JSON.stringify(value);
        if (value === null) return "(null)";
        if (value === undefined) return "(undefined)";
        return "(" + typeof value + " " + String(value) + ")";
    }

    function show(what, value) {
        print(what + " -> " + describe(value));
    }

    // Runs call(); prints its result, or "script error" when the browser
    // raised one (a method that refused its arguments).
    function attempt(what, call) {
        var result;
        try {
            result = call();
        } catch (e) {
            print(what + " -> script error");
            return;
        }
        show(what, result);
    }

    // Calls the plug-in's method `name` with the list args through
    // attempt(), printed as name("a", 1, {}, function).
    function call(plugin, name, args) {
        var text = args.map(function (a) { return typeof a === "function" ? "function" : JSON.stringify(a); });
        attempt(name + "(" + text.join(", ") + ")", function () {
            var a = args;
            switch (a.length) {
                case 0: return plugin[name]();
                case 1: return plugin[name](a[0]);
                case 2: return plugin[name](a[0], a[1]);
                case 3: return plugin[name](a[0], a[1], a[2]);
                case 4: return plugin[name](a[0], a[1], a[2], a[3]);
                case 5: return plugin[name](a[0], a[1], a[2], a[3], a[4]);
                default: return plugin[name](a[0], a[1], a[2], a[3], a[4], a[5]);
            }
        });
    }

    function pass() {
        if (finished) return;
        finished = true;
        console.log("VERDICT: PASS");
    }

    function fail(why) {
        if (finished) return;
        finished = true;
        console.log("VERDICT: FAIL " + why);
    }

    // The plug-in element with the given id (default "corvane"); fails the
    // page when no plug-in answers there.
    function plugin(id) {
        var element = document.getElementById(id || "corvane");
        if (!element || typeof element.queryVersion !== "function") {
            fail("the plug-in did not load in #" + (id || "corvane"));
            throw new Error("no plug-in");
        }
        return element;
    }

    // Calls check() every 50 ms until it answers true, then then(); fails
    // the page after ms milliseconds.
    function waitFor(what, ms, check, then) {
        var started = Date.now();
        var timer = setInterval(function () {
            var ok;
            try {
                ok = check();
            } catch (e) {
                clearInterval(timer);
                fail("error while waiting for " + what + ": " + e);
                return;
            }
            if (ok) {
                clearInterval(timer);
                then();
            } else if (Date.now() - started > ms) {
                clearInterval(timer);
                fail("timed out waiting for " + what);
            }
        }, 50);
    }

    // Runs the page's steps after the load event; an uncaught error fails it.
    function run(steps) {
        window.onerror = function (message, source, line) {
            fail("script error: " + message + " (line " + line + ")");
        };
        window.addEventListener("load", function () {
            try {
                steps();
            } catch (e) {
                fail("the page stopped: " + e);
            }
        });
    }

    return {
        print: print,
        describe: describe,
        show: show,
        attempt: attempt,
        call: call,
        pass: pass,
        fail: fail,
        plugin: plugin,
        waitFor: waitFor,
        run: run,
    };
})();
