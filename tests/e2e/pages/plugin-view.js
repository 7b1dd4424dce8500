var View = (function () {
    "use strict";

    // The layout the screenshot checks in CMakeLists.txt assume.
    document.write("<style>body { margin: 0; background: #FFFFFF; } embed { position: absolute; }" +
        " #text { left: 0; top: 0; } #picture { left: 320px; top: 0; } #relative { left: 0; top: 220px; }</style>");

    // The "image" parameter must be the full URL the browser reports for
    // the stream, so the element with the picture is made here.
    function addPicture(then) {
        var folder = location.protocol + "//" + location.host + location.pathname.replace(/[^\/]*$/, "");
        E2E.embed("picture", { width: 300, height: 200, image: folder + "plugin-view-solid.jpg" }, function () { then(); });
    }

    // x,y: window coordinates, here the page's.
    function click(id, x, y, then) {
        var pressed = false;
        var element = document.getElementById(id);
        element.addEventListener("mousedown", function () { pressed = true; });
        Driver.act("click", String(x), String(y), function () {
            E2E.waitFor("the click in #" + id, 5000, function () { return pressed; }, function () {
                E2E.print("clicked #" + id);
                then();
            });
        });
    }

    // #text and #picture, then each click [id, x, y]; then the screenshot.
    function run(clicks) {
        E2E.run(function () {
            E2E.plugin("text");
            addPicture(function () {
                // Time for the picture's stream to arrive and be painted.
                setTimeout(function next() {
                    var c = clicks.shift();
                    if (c) return click(c[0], c[1], c[2], next);
                    // The picture was asked for without trouble: the log (read where
                    // the driver gives the page the private home) has no warning.
                    if (typeof Driver !== "undefined") {
                        var log = Driver.readFile("~/.local/state/Corvane/corvane-kestrix-browser-plugin.log");
                        E2E.show("image warnings in the log", log.split("Unable to load image").length - 1);
                    }
                    setTimeout(E2E.pass, 500);
                }, 1500);
            });
        });
    }

    return { run: run };
})();
