// The stand-in's members, each with the object in front, as the machine's calling convention has
// it. The definition file gives them their decorated names.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

#include "windows/vendor/vendor_record.h"

namespace {

using Callback = bool (*)(std::uint32_t code, void* first, void* second);

// What an object of the class holds; its storage is the caller's.
struct Object {
  std::uint32_t zero;  // storage comes zeroed
  std::uint32_t type;
  Callback callback;
};

std::string record;

std::string Narrow(const wchar_t* text) {
  if (text == nullptr) return "null";
  std::string result;
  for (; *text != 0; ++text) result += static_cast<char>(*text);
  return result;
}

void Note(const std::string& line) {
  record += line + '\n';
}

}  // namespace

extern "C" {

void Construct(Object* object, const wchar_t* database, const wchar_t* application,
               const wchar_t* version, const wchar_t* fourth, std::uint32_t flags) {
  Note("construct on " + std::to_string(object->zero) + ": " + Narrow(database) + "|" +
       Narrow(application) + "|" + Narrow(version) + "|" + Narrow(fourth) + "|" +
       std::to_string(flags));
  object->type = 1;
}
void ConstructNarrow(Object*, const char*, const char*, const char*, const char*, std::uint32_t) {
  Note("narrow construct");
}
void CopyConstruct(Object*, const Object&) {
  Note("copied");
}
std::uint32_t GetMiniDumpType(Object* object) {
  return object->type;
}
void SetMiniDumpType(Object* object, std::uint32_t type) {
  object->type = type;
  Note("type " + std::to_string(type));
}
void SetCallback(Object* object, Callback callback) {
  object->callback = callback;
  Note(callback(80, nullptr, nullptr) ? "callback says yes" : "callback says no");
}
void SendAdditionalFile(Object*, const wchar_t* path) {
  Note("file " + Narrow(path));
}
void SendAdditionalFileNarrow(Object*, const char*) {
  Note("narrow file");
}
void CreateReport(Object*, void* pointers) {
  Note(pointers == nullptr ? "report" : "report with pointers");
}
void CreateReportFromText(Object*, const wchar_t*) {
  Note("report from text");
}
void ReadRecord(char* text, std::size_t size) {
  const std::size_t length = std::min(record.size(), size - 1);
  std::memcpy(text, record.data(), length);
  text[length] = '\0';
  record.clear();
}

}  // extern "C"
