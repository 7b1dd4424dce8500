// The message table shared by the whole plug-in. Every page-facing error
// text lives here once and is used by name.
#pragma once

#include <string>

namespace Kestrix {
namespace Web {

static const std::string kKestrixApiVersion = "4";
static const std::string kProductName = "Corvane Kestrix";

static const std::string kDialogAllFiles = "All files";
static const std::wstring kDialogAllFilesW = L"All files";
static const std::string kDialogAllFilesPattern = "*.*";
static const std::wstring kDialogAllFilesPatternW = L"*.*";
static const std::string kDialogEtAl = "et al";
static const std::wstring kDialogEtAlW = L"et al";

static const std::string kErrorSessionAlreadyInitialized = "Session was already initialized";
static const std::string kErrorBadAppIdHostname = "Invalid application ID hostname";
static const std::string kErrorKestrixRequest =
    "Error contacting Corvane Kestrix. Ensure that it is running, and not blocked by your firewall or "
    "security "
    "policies.";
static const std::string kErrorKestrixVersion = "Error retrieving the Corvane Kestrix version";
static const std::string kErrorCreatingHttpRequest = "Error creating HTTP request";
static const std::string kErrorDialogAlreadyOpen = "A dialog is already open";
static const std::string kErrorInvalidArgument = "Invalid argument";
static const std::string kErrorInvalidFileTypesJson = "Error parsing fileTypes JSON";
static const std::string kErrorJsonParse = "Error parsing JSON";
static const std::string kErrorLogInit = "Error initializing log";
static const std::string kErrorMissingAppId = "Missing application ID - First initialize session";
static const std::string kErrorSessionInit = "Error initializing session";
static const std::string kErrorStringEncoding = "Error converting string encoding";
static const std::string kErrorUnauthorizedDownloadPath =
    "The website attempted to transfer to an unauthorized directory";
static const std::string kErrorUnauthorizedUploadPath =
    "The website attempted to upload an unauthorized file or folder";
static const std::string kErrorUnexpectedFileDialog = "Error displaying open file dialog";
static const std::string kErrorUnexpectedFolderDialog = "Error displaying open folder dialog";
static const std::string kErrorUnexpectedSaveDialog = "Error displaying save file dialog";
static const std::string kErrorFileTypeArgument = "Invalid file type";
static const std::string kErrorNotAuthorizedFileTypeArgument =
    "Unable to read file context. Only files selected via standard file dialog or drag and drop accepted";
static const std::string kErrorFileSizeExceeded = "Exceeded maximum allowed file size";
static const std::string kErrorInvalidReadChunkValue =
    "Offset and chunk size cannot be negative, and the sum can't be greater than the file size";
static const std::string kErrorFileIOError = "Unable to open file";
// What the native-messaging host answers handleDrop with.
static const std::string kErrorDropUnavailable =
    "Drops are not available in this browser: a dropped file carries no path here";
static const std::string kMsgKestrixLaunch = "Launching Corvane Kestrix";

}  // namespace Web
}  // namespace Kestrix
