// Type declarations for web pages that use the Corvane Web plug-in.
//
// (Browsers without plug-ins get the same API with Promises through the
// Corvane Web extension: see `CorvaneWeb.ExtensionObject` below.)
//
// A page embeds the plug-in and calls the element's scriptable object:
//
//     <embed id="corvane" type="application/x-corvane-web" width="200" height="60"
//            drop-mode="callback" kestrix-launch-wait-timeout-ms="20000">
//
//     const plugin = document.getElementById("corvane") as CorvaneWeb.PluginElement;
//     const session = JSON.parse(plugin.initSession("my-app", location.hostname));
//     if (isCorvaneWebError(session)) showProblem(session.error.user_message);
//
// Every call goes to Corvane Kestrix, the file-transfer client on the same
// machine, over the loopback interface. Calls are synchronous unless their
// name ends in "Async"; the asynchronous ones call the page back later, on
// the page's own thread, with one string.
//
// How failures reach the page:
// - A call with the wrong number or kinds of arguments throws a script error
//   (the browser's generic one, e.g. an Error "Error calling method on
//   NPObject."). The rules for each method are in its comment: "non-empty"
//   strings, "boolean-like" values and so on are checked by the plug-in, not
//   only by these types.
// - Everything else that goes wrong comes back as a string holding an error
//   document, `{"error":{"code":-1,"user_message":"..."}}`. The message is
//   inserted as it stands, without JSON escaping, so a message that itself
//   contains a double quote, a backslash or a line break (the JSON parser's
//   own messages span several lines) does not parse as JSON. Test the text
//   with `isCorvaneWebError` after parsing, and fall back to looking for the
//   `{"error":{"code":-1,"user_message":"` opening when parsing fails.
// - A failure deep inside the plug-in gives the error document as the result
//   even of a method that otherwise gives nothing (`void`).
//
// These declarations are global (no import needed): reference the file with
// `/// <reference path="corvane-web.d.ts" />` or list it in tsconfig.json.

declare namespace CorvaneWeb {
    /** The MIME type to embed the plug-in with. */
    type MimeType = "application/x-corvane-web";

    /**
     * A yes/no argument. The plug-in takes a real boolean, or one of the two
     * exact strings "true" and "false" (so values read from attributes and
     * form fields can be passed on as they are). Anything else, "yes" or 1
     * included, is refused with a script error.
     */
    type BooleanLike = boolean | "true" | "false";

    /**
     * A string result that holds JSON text describing `T`. It is an ordinary
     * string at run time: parse it with `JSON.parse`. The type parameter only
     * says what the text contains.
     */
    type JsonText<T> = string & { readonly __corvaneJsonOf?: T };

    /**
     * The error document: the one form in which failures are reported. The
     * code is always -1; the message is meant for the user.
     */
    interface ErrorDocument {
        error: {
            code: -1;
            user_message: string;
        };
    }

    /** What a successful `initSession` answers: the application id, as given. */
    interface SessionDocument {
        app_id: string;
    }

    /**
     * Corvane Kestrix's own description of itself, passed on unchanged by
     * `queryKestrixVersion`. Its fields belong to the client; a current client
     * names itself and its version.
     */
    interface KestrixVersionDocument {
        name?: string;
        version?: string;
        api_version?: string;
        [field: string]: unknown;
    }

    /**
     * One transfer-activity report from Corvane Kestrix, the text of each
     * "transfer" event. The plug-in passes the client's answer on unchanged;
     * `iteration_token` is always there, the rest is the client's own.
     */
    interface TransferActivityDocument {
        iteration_token: string;
        transfers?: TransferDescription[];
        [field: string]: unknown;
    }

    /** One transfer as Corvane Kestrix describes it in its activity reports. */
    interface TransferDescription {
        id?: string;
        direction?: "send" | "receive" | string;
        status?: string;
        [field: string]: unknown;
    }

    /**
     * A file-type filter for the file and save panels, passed as JSON text:
     * `JSON.stringify([{filter_name: "Images", extensions: ["jpg", "png"]}])`.
     * Extensions are written without the dot; the single extension "*" means
     * any file. Every entry needs a name and at least one extension.
     */
    interface FileTypeFilter {
        filter_name: string;
        extensions: string[];
    }

    /** One chosen or dropped file in the extended description. */
    interface FileDescription {
        /** The modification time, as in "Mon Nov  2 10:00:00 2015"; missing when unknown. */
        lastModifiedDate?: string;
        /** The full path of the file, not only its last part. */
        name: string;
        /** Size in bytes; 0 for a folder. */
        size: number;
        /** MIME type; "text/directory" for a folder; "" when unknown. */
        type: string;
    }

    /**
     * The extended description of chosen or dropped files, shaped like the
     * page's own drag and drop objects.
     */
    interface DataTransferDocument {
        dataTransfer: {
            files: FileDescription[];
        };
    }

    /**
     * The events the plug-in delivers to `eventHandler`:
     * - "transfer": about once a second while a session exists, with Corvane
     *   Kestrix's transfer-activity report as JSON text
     *   (`TransferActivityDocument`);
     * - "drop": files were dropped on the plug-in (drop mode "callback"); the
     *   text is a JSON array of their paths;
     * - "dropex": the same drop as an extended description
     *   (`DataTransferDocument`);
     * - "dragover", "dragleave": a drag moves over the plug-in or leaves it;
     *   the text is "".
     */
    type EventName = "transfer" | "drop" | "dropex" | "dragover" | "dragleave";

    /**
     * The page's event handler: a function the plug-in calls with the event's
     * name and its text. Its return value is ignored.
     */
    type EventHandler = (eventName: EventName, text: string) => void;

    /**
     * The page's drop observer (drop mode "callback"): an object whose method
     * `onDrop` is called once per drop with the dropped paths joined by ":",
     * each ":" and "\" inside a path preceded by a backslash. `paths` is null
     * when nothing usable was dropped.
     */
    interface DropObserver {
        onDrop(paths: string | null): void;
    }

    /**
     * A completion callback: called once, later, with one string argument.
     * Its return value is ignored.
     */
    type ResultCallback<T extends string = string> = (text: T) => void;

    /**
     * The element's parameters (attributes of `embed`, or `param` elements of
     * `object`). Only the exact lower-case words shown switch a setting on.
     */
    interface EmbedParameters {
        /** How long to wait for Corvane Kestrix to start, in milliseconds; default 20000. */
        "kestrix-launch-wait-timeout-ms"?: string;
        /** "yes" lets the page show through the plug-in's area. */
        transparent?: "yes" | string;
        /** URL of a JPEG image the plug-in draws in its area. */
        image?: string;
        /** What a drop of files does: "upload" sends them to drop-upload-url, "callback" tells the page. */
        "drop-mode"?: "upload" | "callback" | string;
        /** "true" accepts dropped folders. */
        "drop-allow-directories"?: "true" | string;
        /** "true" accepts several files in one drop. */
        "drop-allow-multiple"?: "true" | string;
        /** Where drop mode "upload" sends dropped files. */
        "drop-upload-url"?: string;
        /** The link capacity to announce to Corvane Kestrix, a whole number. */
        "link-capacity"?: string;
        /** An icon for the transfers the page starts. */
        "transfer-icon"?: string;
    }

    /**
     * The plug-in's scriptable interface: 29 methods and 3 properties.
     * Extra arguments are ignored where a method says "or more"; elsewhere the
     * count must match exactly.
     */
    interface ScriptableObject {
        // --- Properties -----------------------------------------------------

        /**
         * A name the page may give this plug-in instance; "" until set. Only a
         * string is taken: the plug-in refuses any other value and the name
         * stays as it was (depending on the browser, silently or with a
         * script error).
         */
        name: string;

        /**
         * The object told about drops in drop mode "callback" (see
         * `DropObserver`). Assigning anything that is not an object clears it.
         */
        dropObserver: DropObserver | null;

        /**
         * The function that receives the plug-in's events (see `EventName`).
         * Assigning anything that is not a function or object clears the
         * property, but transfer events keep going to the handler that was
         * set last until another one is assigned.
         */
        eventHandler: EventHandler | null;

        // --- Download and upload lists --------------------------------------

        /** Adds a remote source path to the download list (non-empty string). */
        addToDownloadList(source: string): void;

        /** Adds a file the user chose to the upload list (non-empty string). */
        addToUploadList(path: string): void;

        /** Empties the download list. Takes no arguments. */
        clearDownloadList(): void;

        /** Empties the upload list. Takes no arguments. */
        clearUploadList(): void;

        // --- Requests forwarded to Corvane Kestrix --------------------------

        /**
         * Sends a request of the page to Corvane Kestrix and waits for the
         * answer. `data` is the JSON body ("" sends "{}"); it is checked
         * first: it must parse, an application id starting with "^" must
         * name this page's host, and the transfers it describes may only send
         * files the user chose and only receive into the folder the user
         * chose. Gives the client's answer body whatever its HTTP status, or
         * an error document. Takes 3 or more arguments.
         */
        kestrixHttpRequest(method: string, path: string, data: string): JsonText<unknown>;

        /**
         * The same request, sent in the background. Gives null when the
         * request was queued; `callback` is then called once with the
         * client's answer body, or with an error document when no answer
         * came. When the body is refused or no request can be built, the
         * error document is given at once and `callback` is never called.
         * Takes 4 or more arguments.
         */
        kestrixHttpRequestAsync(
            method: string,
            path: string,
            data: string,
            callback: ResultCallback<JsonText<unknown>>,
        ): JsonText<ErrorDocument> | null;

        // --- Corvane Kestrix windows ----------------------------------------

        /** Opens Corvane Kestrix's About window. Takes no arguments. */
        displayAboutWindow(): void;

        /** Opens Corvane Kestrix's preferences. Takes no arguments. */
        displayPreferencesWindow(): void;

        /** Opens Corvane Kestrix's transfer manager. Takes no arguments. */
        displayTransferManager(): void;

        // --- Drag and drop ----------------------------------------------------

        /**
         * Takes the files of a drop that happened on the page's own drop
         * target. `fileNames`, when given, lists the names the page saw
         * (`Array.from(event.dataTransfer.files, f => f.name)`); the drop is
         * refused when they do not match the dragged files. Throws before the
         * plug-in is shown.
         */
        handleDrop(fileNames?: ArrayLike<string>): void;

        // --- Session ------------------------------------------------------------

        /**
         * Starts the page's session with Corvane Kestrix and with it the
         * "transfer" events. An application id that starts with "^" is bound
         * to the page's host: "^portal" is accepted only on a page whose host
         * name is exactly "portal" (a page without a host name, such as a
         * local file, counts as "localhost"). `domain` is only recorded.
         * Gives `{"app_id":"..."}`, or an error document: a second call on
         * the same plug-in instance is always refused. Takes 2 or more
         * arguments.
         */
        initSession(appId: string, domain: string): JsonText<SessionDocument | ErrorDocument>;

        // --- Versions -----------------------------------------------------------

        /** The host interface the plug-in was built for: "Gecko" for browsers of the NPAPI family. */
        queryBrowserEngine(): "Gecko" | "MSHTML" | "WebKit" | "Unknown";

        /** The plug-in's full build version, e.g. "3.5.2.94907". */
        queryBuildVersion(): string;

        /** The plug-in's full version, e.g. "3.5.2.94907". */
        queryPluginVersion(): string;

        /** The plug-in's short version, e.g. "3.5". */
        queryVersion(): string;

        /**
         * Asks Corvane Kestrix for its version (starting it if needed). Gives
         * the client's answer as JSON text, or an error document.
         */
        queryKestrixVersion(): JsonText<KestrixVersionDocument | ErrorDocument>;

        // --- File and folder panels -------------------------------------------

        /**
         * Shows a panel to choose files and waits for it. Gives the chosen
         * paths joined by ":" (each ":" and "\" inside a path preceded by a
         * backslash), or "" when the user cancelled or another panel is open.
         * The chosen files may then be uploaded and read.
         */
        runOpenFileDialog(allowDirectories: BooleanLike, allowMultiple: BooleanLike): string;

        /**
         * Shows a panel to choose files and returns at once (null). When the
         * user confirms, `callback` receives a JSON array of the chosen paths,
         * or the extended description when `extendedResult` is true; nothing
         * is called when the user cancels. `fileTypes` is "" or JSON text of
         * `FileTypeFilter[]`. Gives an error document instead when another
         * panel is open.
         */
        runOpenFileDialogAsync(
            title: string,
            allowMultiple: BooleanLike,
            fileTypes: string,
            callback: ResultCallback<JsonText<string[] | ErrorDocument>>,
            extendedResult?: false | "false",
        ): JsonText<ErrorDocument> | null;
        runOpenFileDialogAsync(
            title: string,
            allowMultiple: BooleanLike,
            fileTypes: string,
            callback: ResultCallback<JsonText<DataTransferDocument | ErrorDocument>>,
            extendedResult: true | "true",
        ): JsonText<ErrorDocument> | null;
        runOpenFileDialogAsync(
            title: string,
            allowMultiple: BooleanLike,
            fileTypes: string,
            callback: ResultCallback<JsonText<string[] | DataTransferDocument | ErrorDocument>>,
            extendedResult?: BooleanLike,
        ): JsonText<ErrorDocument> | null;

        /**
         * Shows a panel to choose a folder and waits for it. Gives the chosen
         * folders joined by ":" as `runOpenFileDialog` does, or "". The first
         * chosen folder becomes the allowed destination of the next download.
         */
        runOpenFolderDialog(allowMultiple: BooleanLike): string;

        /**
         * Shows a panel to choose a folder and returns at once (null);
         * `callback` then receives a JSON array of the chosen folders, or
         * the extended description when `extendedResult` is true. Gives an
         * error document instead when another panel is open.
         */
        runOpenFolderDialogAsync(
            title: string,
            allowMultiple: BooleanLike,
            callback: ResultCallback<JsonText<string[] | ErrorDocument>>,
            extendedResult?: false | "false",
        ): JsonText<ErrorDocument> | null;
        runOpenFolderDialogAsync(
            title: string,
            allowMultiple: BooleanLike,
            callback: ResultCallback<JsonText<DataTransferDocument | ErrorDocument>>,
            extendedResult: true | "true",
        ): JsonText<ErrorDocument> | null;
        runOpenFolderDialogAsync(
            title: string,
            allowMultiple: BooleanLike,
            callback: ResultCallback<JsonText<string[] | DataTransferDocument | ErrorDocument>>,
            extendedResult?: BooleanLike,
        ): JsonText<ErrorDocument> | null;

        /**
         * Shows a save panel suggesting `suggestedName` (may be "") and waits
         * for it. Gives the chosen path, or "" when cancelled or another panel
         * is open. The chosen path becomes the allowed destination of the next
         * download.
         */
        runSaveFileDialog(suggestedName: string): string;

        /**
         * Shows a save panel and returns at once (null); `callback` then
         * receives the chosen path as a JSON string, or the JSON text "null"
         * when the user cancelled. Gives an error document instead when
         * another panel is open. Takes exactly 4 arguments.
         */
        runSaveFileDialogAsync(
            title: string,
            suggestedName: string,
            fileTypes: string,
            callback: ResultCallback<JsonText<string | null | ErrorDocument>>,
        ): JsonText<ErrorDocument> | null;

        // --- Transfers ----------------------------------------------------------

        /**
         * Asks Corvane Kestrix to download `source` (a path on the remote side,
         * non-empty), leaving the destination to the client.
         */
        startDownload(source: string): void;

        /**
         * Downloads `source` (non-empty) into `destination`, which must be the
         * folder (or below the folder) the user last chose in a folder or save
         * panel; "" leaves the destination to the client. A refused
         * destination starts nothing and reports nothing to the page.
         */
        startDownloadToPath(source: string, destination: string): void;

        /** Uploads a file the user chose (`path`, non-empty) to `url` (non-empty). */
        startUploadToURL(path: string, url: string): void;

        /**
         * Downloads everything on the download list into `destination`, as
         * `startDownloadToPath` does ("" is allowed). The list is kept.
         */
        startListDownloadToPath(destination: string): void;

        /** Uploads everything on the upload list to `url` (non-empty). The list is kept. */
        startListUploadToURL(url: string): void;

        // --- Reading chosen files ------------------------------------------------

        /**
         * Reads a whole file that the user chose in a panel or dropped on the
         * plug-in (at most 50 MiB) as a "data:<type>;base64,..." URL. Failures
         * give either an error document (a file the user did not choose, a
         * folder or missing file) or a plain message without JSON around it
         * (too large, unreadable, empty).
         */
        readAsArrayBuffer(path: string): string;

        /**
         * Reads `size` bytes at `offset` of a file the user chose, as a data
         * URL. Both numbers are whole byte counts below 2^32. Failures are
         * reported as for `readAsArrayBuffer`; a range past the end of the
         * file gives a plain message.
         */
        readChunkAsArrayBuffer(path: string, offset: number, size: number): string;
    }

    /** The `embed` element that shows the plug-in, with its scriptable interface. */
    interface PluginElement extends HTMLEmbedElement, ScriptableObject {
        name: string;
    }

    /** The `object` element that shows the plug-in, with its scriptable interface. */
    interface PluginObjectElement extends HTMLObjectElement, ScriptableObject {
        name: string;
    }

    /** Each method of T answering a Promise of what it answers there. */
    type Promised<T> = {
        [K in keyof T]: T[K] extends (...args: infer A) => infer R ? (...args: A) => Promise<R> : T[K];
    };

    /**
     * The same page API in browsers without plug-ins (Chromium, Firefox),
     * through the Corvane Web extension and its native host: `window.corvaneWeb`,
     * there from the page's first script on, but only on the origins the user
     * allowed in the extension's options (a page of any other origin has no
     * such property).
     *
     *     const session = JSON.parse(await window.corvaneWeb!.initSession("my-app", location.hostname));
     *
     * - Every method answers a Promise of the plug-in's answer, the same text
     *   (the synchronous panels settle when the user is done). A call the
     *   plug-in would refuse with a script error rejects with a TypeError.
     * - Callbacks and the event handler are called as with the plug-in; a
     *   callback never comes before its call's Promise has settled.
     * - The session is bound to the page's real origin, as the browser
     *   reports it: `initSession` checks a "^host" id against that host name.
     * - If the host process ends (it is started once per page frame), calls
     *   under way reject, the window gets a `corvanewebdisconnect` event, and
     *   the next call starts a fresh host: with a new session, and no files
     *   approved yet.
     * - A drop in these browsers carries no file paths: `handleDrop` answers
     *   an error document, and there are no drop modes, so the drop observer
     *   and the drop events are never used.
     */
    interface ExtensionObject extends Promised<ScriptableObject> {}
}

interface Window {
    /** The page API through the extension (see `CorvaneWeb.ExtensionObject`). */
    readonly corvaneWeb?: CorvaneWeb.ExtensionObject;
}

interface WindowEventMap {
    /** The extension's host ended; `detail` says why. */
    corvanewebdisconnect: CustomEvent<string>;
}

/**
 * Tells whether a parsed result is the plug-in's error document. The plug-in
 * does not provide this function: a page defines it, for instance
 *
 *     function isCorvaneWebError(value) {
 *         return typeof value === "object" && value !== null &&
 *             typeof value.error === "object" && value.error !== null &&
 *             value.error.code === -1 && typeof value.error.user_message === "string";
 *     }
 *
 * (demo/demo.js carries this one).
 */
declare function isCorvaneWebError(value: unknown): value is CorvaneWeb.ErrorDocument;
