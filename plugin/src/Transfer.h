// One transfer request document, posted to the local client's "/transfers/".
#pragma once

#include <map>
#include <string>
#include <vector>

namespace Kestrix {
namespace Web {

class Transfer {
public:
    // The schema URI of the transfer-request format, carried by the root element.
    static const std::string kXmlNamespace;

    Transfer() = default;
    virtual ~Transfer() = default;

    void setSource(const std::string& source);
    void setSource(const std::vector<std::string>& sources);
    void setDestination(const std::string& destination);
    void setParam(const std::string& name, const std::string& value);

    // The document as the local client receives it: one line, no declaration.
    std::string toXml() const;

    // Makes sure the client runs and posts the document; true when any
    // answer came back (its status and body are not looked at).
    bool request();

private:
    std::vector<std::string> _sources;
    std::string _destination;
    std::map<std::string, std::string> _params;
};

}  // namespace Web
}  // namespace Kestrix
