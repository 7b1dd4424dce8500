// A small front for yajl's generator, so that every text the simulator puts
// into JSON (file names, page-supplied paths) is escaped properly.
#pragma once

#include <yajl/yajl_gen.h>

#include <string>
#include <vector>

namespace Kestrix::Sim {

class JsonWriter {
public:
    JsonWriter();
    ~JsonWriter();
    JsonWriter(const JsonWriter&) = delete;
    JsonWriter& operator=(const JsonWriter&) = delete;

    void openMap();
    void closeMap();
    void openArray();
    void closeArray();
    void key(const std::string& name);
    void string(const std::string& value);
    void integer(long long value);
    void boolean(bool value);

    void field(const std::string& name, const std::string& value);
    void field(const std::string& name, const char* value);
    void field(const std::string& name, long long value);
    void field(const std::string& name, bool value);
    void field(const std::string& name, const std::vector<std::string>& values);

    // The document so far.
    std::string text() const;

private:
    yajl_gen _gen;
};

}  // namespace Kestrix::Sim
