// The readable story of a conversion: callbacks, log lines, scripts and shell lines, in order.
//
//   percent 20
//   status 2
//   log 1: DISKPART_Clean Begin...
//   shell elevated: /c diskpart /s "X:\logs\DISKPART_cmd.log" >> "X:\logs\DISKPART_result.log"
//   script: select disk 1\r\nclean\r\n
//   result 0
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace conversion {

using Transcript = std::vector<std::string>;

// Carriage returns, line feeds and tabs as \r, \n and \t.
std::string Escaped(std::string_view text);

// Puts "GUID1", "GUID2"… for GUIDs in the order in which they first appear.
Transcript Normalised(const Transcript& lines);

// Compares with tests/transcripts/<name>.txt, whole. With VELKORA_UPDATE_TRANSCRIPTS=1 in the
// environment the file is written first.
void ExpectTranscript(const Transcript& lines, const std::string& name);

}  // namespace conversion
