#include "TransferOrder.h"

#include <expat.h>
#include <yajl/yajl_tree.h>

#include <memory>

namespace Kestrix::Sim {

namespace {

const char kFileScheme[] = "file://";

bool isFileUrl(const std::string& text) {
    return text.compare(0, sizeof(kFileScheme) - 1, kFileScheme) == 0;
}

// --- XML form -------------------------------------------------------------

struct XmlState {
    int depth = 0;
    bool sawRoot = false;
    std::string rootName;
    std::string element;  // the child of the root being read, "" elsewhere
    std::string text;
    TransferOrder* order = nullptr;
    bool hasDest = false;
};

void XMLCALL onStart(void* data, const XML_Char* name, const XML_Char** attributes) {
    auto* state = static_cast<XmlState*>(data);
    ++state->depth;
    if (state->depth == 1) {
        state->sawRoot = true;
        state->rootName = name;
        return;
    }
    if (state->depth != 2) return;
    state->element = name;
    state->text.clear();
    if (state->element == "param") {
        std::string paramName, paramValue;
        for (int i = 0; attributes[i] != nullptr; i += 2) {
            if (std::string(attributes[i]) == "name")
                paramName = attributes[i + 1];
            else if (std::string(attributes[i]) == "value")
                paramValue = attributes[i + 1];
        }
        state->order->params[paramName] = paramValue;
    }
}

void XMLCALL onEnd(void* data, const XML_Char*) {
    auto* state = static_cast<XmlState*>(data);
    if (state->depth == 2) {
        if (state->element == "src") {
            state->order->items.push_back({state->text, ""});
        } else if (state->element == "dest") {
            state->order->destination = state->text;
            state->hasDest = true;
        }
        state->element.clear();
    }
    --state->depth;
}

void XMLCALL onText(void* data, const XML_Char* text, int length) {
    auto* state = static_cast<XmlState*>(data);
    if (state->depth == 2 && !state->element.empty()) state->text.append(text, static_cast<size_t>(length));
}

// --- JSON form ------------------------------------------------------------

struct TreeDeleter {
    void operator()(yajl_val value) const { yajl_tree_free(value); }
};

yajl_val member(yajl_val object, const char* name) {
    const char* path[] = {name, nullptr};
    return object == nullptr ? nullptr : yajl_tree_get(object, path, yajl_t_any);
}

std::string stringMember(yajl_val object, const char* name) {
    yajl_val value = member(object, name);
    return YAJL_IS_STRING(value) ? YAJL_GET_STRING(value) : "";
}

std::string joinRoot(const std::string& root, const std::string& source) {
    if (root.empty()) return source;
    std::string left = root;
    while (left.size() > 1 && left.back() == '/') left.pop_back();
    size_t start = source.find_first_not_of('/');
    return left + (left.back() == '/' ? "" : "/") + (start == std::string::npos ? "" : source.substr(start));
}

bool readSpec(yajl_val element, TransferOrder& order, std::string& error) {
    yajl_val spec = member(element, "transfer_spec");
    if (!YAJL_IS_OBJECT(spec)) {
        error = "transfer_spec is missing";
        return false;
    }
    order.direction = stringMember(spec, "direction");
    if (order.direction.empty()) order.direction = "receive";
    if (order.direction != "receive" && order.direction != "send") {
        error = "unknown direction: " + order.direction;
        return false;
    }
    const std::string sourceRoot = stringMember(spec, "source_root");
    order.destination = stringMember(spec, "destination_root");
    yajl_val paths = member(spec, "paths");
    if (!YAJL_IS_ARRAY(paths) || paths->u.array.len == 0) {
        error = "paths must be a non-empty array";
        return false;
    }
    for (size_t i = 0; i < paths->u.array.len; ++i) {
        yajl_val path = paths->u.array.values[i];
        yajl_val source = member(path, "source");
        if (!YAJL_IS_OBJECT(path) || !YAJL_IS_STRING(source)) {
            error = "each path needs a source string";
            return false;
        }
        order.items.push_back(
            {joinRoot(sourceRoot, YAJL_GET_STRING(source)), stringMember(path, "destination")});
    }
    return true;
}

}  // namespace

std::vector<std::string> TransferOrder::sources() const {
    std::vector<std::string> list;
    for (const auto& item : items) list.push_back(item.source);
    return list;
}

bool parseXferreqXml(const std::string& body, TransferOrder& order, std::string& error) {
    std::unique_ptr<XML_ParserStruct, void (*)(XML_Parser)> parser(XML_ParserCreate(nullptr), XML_ParserFree);
    if (!parser) {
        error = "out of memory";
        return false;
    }
    XmlState state;
    state.order = &order;
    XML_SetUserData(parser.get(), &state);
    XML_SetElementHandler(parser.get(), onStart, onEnd);
    XML_SetCharacterDataHandler(parser.get(), onText);
    if (XML_Parse(parser.get(), body.data(), static_cast<int>(body.size()), 1) != XML_STATUS_OK) {
        error = std::string("XML error: ") + XML_ErrorString(XML_GetErrorCode(parser.get())) + " at line " +
                std::to_string(XML_GetCurrentLineNumber(parser.get())) + ", column " +
                std::to_string(XML_GetCurrentColumnNumber(parser.get()));
        return false;
    }
    if (state.rootName != "xferreq") {
        error = "the root element is not xferreq";
        return false;
    }
    if (order.items.empty()) {
        error = "no src element";
        return false;
    }
    if (!state.hasDest || order.destination.empty()) {
        error = "no dest element";
        return false;
    }
    order.direction = isFileUrl(order.items.front().source) ? "send" : "receive";
    return true;
}

bool parseXferreqJson(const std::string& body, std::vector<TransferOrder>& orders, std::string& error) {
    char parseError[512] = "";
    std::unique_ptr<yajl_val_s, TreeDeleter> root(
        yajl_tree_parse(body.c_str(), parseError, sizeof(parseError)));
    if (!root) {
        error = std::string("JSON error: ") + parseError;
        return false;
    }
    yajl_val specs = member(root.get(), "transfer_specs");
    if (!YAJL_IS_ARRAY(specs) || specs->u.array.len == 0) {
        error = "transfer_specs must be a non-empty array";
        return false;
    }
    for (size_t i = 0; i < specs->u.array.len; ++i) {
        TransferOrder order;
        if (!readSpec(specs->u.array.values[i], order, error)) return false;
        if (order.destination.empty()) {
            error = "destination_root is missing";
            return false;
        }
        orders.push_back(order);
    }
    return true;
}

}  // namespace Kestrix::Sim
