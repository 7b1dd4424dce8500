// Compile-time checks of the declarations: typical page code must type-check,
// and the mistakes below must be refused (each @ts-expect-error fails the
// check when the line it guards compiles).

const plugin = document.getElementById("corvane") as CorvaneWeb.PluginElement;

// Results read as the strings they are.
const version: string = plugin.queryVersion();
const engine: "Gecko" | "MSHTML" | "WebKit" | "Unknown" = plugin.queryBrowserEngine();
console.log(version.length, engine, plugin.queryBuildVersion(), plugin.queryPluginVersion());

const session: unknown = JSON.parse(plugin.initSession("^portal", location.hostname));
if (isCorvaneWebError(session)) {
    const code: -1 = session.error.code;
    console.log(code, session.error.user_message.toUpperCase());
}

const forwarded = plugin.kestrixHttpRequest("GET", "/v4/kestrix/version", "");
console.log(forwarded.startsWith("{"));
const queued = plugin.kestrixHttpRequestAsync("POST", "/transfers/", "{}", (text) => {
    console.log(text.length);
});
if (queued !== null) console.log(queued.length);

// Properties.
plugin.name = "uploader";
plugin.eventHandler = (eventName, text) => {
    if (eventName === "transfer") console.log(JSON.parse(text));
};
plugin.eventHandler = null;
plugin.dropObserver = { onDrop: (paths) => console.log(paths === null ? "nothing" : paths.split(":")) };
plugin.dropObserver = null;

// Boolean-like arguments and the optional extended flag.
plugin.runOpenFileDialog("true", false);
plugin.runOpenFolderDialogAsync("Pick", "false", (text) => console.log(text), true);
plugin.runOpenFileDialogAsync("Pick", true, JSON.stringify([{ filter_name: "Images", extensions: ["jpg"] }]),
    (text) => console.log(text));
plugin.runSaveFileDialogAsync("Save", "a.txt", "", (text) => console.log(text));
plugin.handleDrop(["a.txt", "b.txt"]);
plugin.handleDrop();
console.log(plugin.readChunkAsArrayBuffer("/tmp/a", 0, 1024), plugin.readAsArrayBuffer("/tmp/a"));
plugin.startDownload("/remote/a.txt");
plugin.startListDownloadToPath("");

const filters: CorvaneWeb.FileTypeFilter[] = [{ filter_name: "All", extensions: ["*"] }];
const params: CorvaneWeb.EmbedParameters = { "drop-mode": "callback", transparent: "yes" };
console.log(filters, params);

// Mistakes the declarations catch.
// @ts-expect-error 1 is not boolean-like
plugin.runOpenFileDialog(1, 0);
// @ts-expect-error "yes" is not boolean-like
plugin.runOpenFolderDialog("yes");
// @ts-expect-error the callback is missing
plugin.kestrixHttpRequestAsync("GET", "/", "");
// @ts-expect-error versions take no arguments
plugin.queryVersion("x");
// @ts-expect-error only strings name the plug-in
plugin.name = 5;
// @ts-expect-error events have these five names only
plugin.eventHandler = (eventName: "upload", text: string) => console.log(eventName, text);
// @ts-expect-error offsets are numbers
plugin.readChunkAsArrayBuffer("/tmp/a", "0", 1);
// @ts-expect-error the save panel takes exactly four arguments
plugin.runSaveFileDialogAsync("Save", "a.txt", (text: string) => console.log(text));

// The same API through the extension: Promises of the same answers.
async function throughTheExtension(): Promise<void> {
    const web = window.corvaneWeb;
    if (!web) return;
    const answer: string = await web.initSession("^portal", location.hostname);
    const engine: "Gecko" | "MSHTML" | "WebKit" | "Unknown" = await web.queryBrowserEngine();
    const data: string = await web.readChunkAsArrayBuffer("/chosen/file", 0, 1024);
    web.eventHandler = (eventName, text) => console.log(eventName, text);
    window.addEventListener("corvanewebdisconnect", (event) => console.log(event.detail.length));
    console.log(answer, engine, data);
    // @ts-expect-error the answers are Promises, not strings
    const notYet: string = web.queryVersion();
    console.log(notYet);
}
void throughTheExtension;
