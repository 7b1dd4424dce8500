#include "JsonWriter.h"

#include <new>

namespace Kestrix::Sim {

JsonWriter::JsonWriter() : _gen(yajl_gen_alloc(nullptr)) {
    if (_gen == nullptr) throw std::bad_alloc();
}

JsonWriter::~JsonWriter() {
    yajl_gen_free(_gen);
}

void JsonWriter::openMap() {
    yajl_gen_map_open(_gen);
}
void JsonWriter::closeMap() {
    yajl_gen_map_close(_gen);
}
void JsonWriter::openArray() {
    yajl_gen_array_open(_gen);
}
void JsonWriter::closeArray() {
    yajl_gen_array_close(_gen);
}

void JsonWriter::key(const std::string& name) {
    string(name);
}

void JsonWriter::string(const std::string& value) {
    yajl_gen_string(_gen, reinterpret_cast<const unsigned char*>(value.data()), value.size());
}

void JsonWriter::integer(long long value) {
    yajl_gen_integer(_gen, value);
}
void JsonWriter::boolean(bool value) {
    yajl_gen_bool(_gen, value ? 1 : 0);
}

void JsonWriter::field(const std::string& name, const std::string& value) {
    key(name);
    string(value);
}

void JsonWriter::field(const std::string& name, const char* value) {
    field(name, std::string(value));
}

void JsonWriter::field(const std::string& name, long long value) {
    key(name);
    integer(value);
}

void JsonWriter::field(const std::string& name, bool value) {
    key(name);
    boolean(value);
}

void JsonWriter::field(const std::string& name, const std::vector<std::string>& values) {
    key(name);
    openArray();
    for (const auto& value : values) string(value);
    closeArray();
}

std::string JsonWriter::text() const {
    const unsigned char* buffer = nullptr;
    size_t length = 0;
    yajl_gen_get_buf(_gen, &buffer, &length);
    return std::string(reinterpret_cast<const char*>(buffer), length);
}

}  // namespace Kestrix::Sim
