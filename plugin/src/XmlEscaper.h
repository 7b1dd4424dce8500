// Escapes text for use as XML character data.
#pragma once

#include <string>

namespace Kestrix {
namespace Web {

class XmlEscaper {
public:
    // "<", ">" and "&" become entities; quotes and apostrophes are kept, as
    // the text only ever lands in element content.
    static std::string escape(const std::string& text);
};

}  // namespace Web
}  // namespace Kestrix
