// What a transfer request asks for, read from either of its two forms:
//  - the xferreq XML document: <xferreq xmlns="..."><src>..</src>..<dest>..</dest></xferreq>
//    (sources that are file:// URLs make it an upload, anything else a download);
//  - the JSON form: {"transfer_specs":[{"transfer_spec":{"direction":"receive"|"send",
//    "source_root":..,"destination_root":..,"paths":[{"source":..,"destination":..}]}}]}.
#pragma once

#include <map>
#include <string>
#include <vector>

namespace Kestrix::Sim {

struct TransferItem {
    std::string source;      // as sent: a path or a file:// URL
    std::string targetName;  // name below the destination; "" keeps the source's name
};

struct TransferOrder {
    std::string direction;  // "receive" (download) or "send" (upload)
    std::vector<TransferItem> items;
    std::string destination;  // as sent: a file:// URL or a path
    std::map<std::string, std::string> params;

    std::vector<std::string> sources() const;
};

bool parseXferreqXml(const std::string& body, TransferOrder& order, std::string& error);
bool parseXferreqJson(const std::string& body, std::vector<TransferOrder>& orders, std::string& error);

}  // namespace Kestrix::Sim
