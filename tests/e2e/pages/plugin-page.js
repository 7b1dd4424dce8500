// Shared by the plug-in's pages: each result is one "E2E: <what> -> <result>" line
// (line breaks JSON-quoted); the verdict only says that the page ran to its end.
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
    // Strings quoted, so that an empty one shows.
    function quoted(what, value) {
        print(what + " -> " + (typeof value === "string" ? JSON.stringify(value) : describe(value)));
    }
    // Removes the element's box "<id>-box", and with it the plug-in instance.
    function remove(id) {
        var box = document.getElementById(id + "-box");
        box.parentNode.removeChild(box);
    }

    // "script error": the method refused its arguments.
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

    // Plug-in methods are no script functions: no apply().
    function invoke(plugin, name, a) {
        var list = a.map(function (_, i) { return "a[" + i + "]"; }).join(", ");
        return new Function("p", "a", "return p[" + JSON.stringify(name) + "](" + list + ");")(plugin, a);
    }

    function call(plugin, name, args) {
        var text = args.map(function (a) { return typeof a === "function" ? "function" : JSON.stringify(a); });
        attempt(name + "(" + text.join(", ") + ")", function () { return invoke(plugin, name, args); });
    }

    function verdict(line) {
        if (!finished) console.log(line);
        finished = true;
    }
    function pass() { verdict("VERDICT: PASS"); }
    function fail(why) { verdict("VERDICT: FAIL " + why); }

    // Adds a plug-in element with these attributes to `parent` (default the
    // body); then(element) once the plug-in answers in it, if given.
    function embed(id, attributes, then, parent) {
        var element = document.createElement("embed");
        element.id = id;
        element.setAttribute("type", "application/x-corvane-web");
        for (var name in attributes) element.setAttribute(name, attributes[name]);
        (parent || document.body).appendChild(element);
        if (then) waitFor("the plug-in in #" + id, 10000, function () { return typeof element.queryVersion === "function"; },
            function () { then(element); });
        return element;
    }

    function plugin(id) {
        var element = document.getElementById(id || "corvane");
        if (!element || typeof element.queryVersion !== "function") {
            fail("the plug-in did not load in #" + (id || "corvane"));
            throw new Error("no plug-in");
        }
        return element;
    }

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

    return { print: print, describe: describe, show: show, quoted: quoted, remove: remove, attempt: attempt, invoke: invoke, call: call, pass: pass, fail: fail,
        plugin: plugin, embed: embed, waitFor: waitFor, run: run };
})();
