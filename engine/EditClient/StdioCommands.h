#pragma once

#include <string>
#include <string_view>

#include "EditClient/EditCommands.h"

// The line protocol of the long-lived edit helper: one tab-separated command a line, its first
// field the command word.
//
//   ping | quit
//   prims         REV COUNT, then per operation its kind word and fields (below)
//   components    REV COUNT, then per operation: KIND ENTITY TYPE [tail of that kind]
//   component     REV KIND ENTITY TYPE [tail]      tail: enable, reorder VALUE; set PROP VALUE;
//                                                  reset PROP; add, remove nothing
//   usd-property  REV set PRIM PROP VALUE | REV reset PRIM PROP
//   asset         REV replace NAME KIND SOURCE [STORE] | REV remove NAME
//   history       REV undo | REV redo
//
// Prim operations inside "prims" (the kind word, then):
//   add PARENT NAME PRIMITIVE [asset=NAME]     reference PARENT NAME URI
//   payload PARENT NAME URI ASSET              delete SOURCE     reset SOURCE
//   duplicate SOURCE PARENT NAME               reparent SOURCE PARENT NAME   (also "rename")
//   set-instanceable SOURCE true|false
// each followed by an optional "translation=X,Y,Z". Operations are not of fixed width: the next
// operation starts after the optional tokens, which are recognised by their prefixes.
namespace orvan::engine {

enum class StdioLineKind { kPing, kQuit, kEdit, kUnknown, kMalformed };

struct StdioLine {
  StdioLineKind kind = StdioLineKind::kMalformed;
  EditCommand command;  // kEdit only
  // kUnknown and kMalformed: the reply's message, starting with "unknown stdio command" or
  // "malformed stdio command".
  std::string problem;
};

// Parses one line without its line feed; every other byte, a carriage return included, belongs
// to the line. Never throws: any byte string is a line of some kind.
StdioLine parseStdioLine(std::string_view line);

// The reply message of a line longer than the helper reads.
std::string overlongLineProblem(std::size_t limit);

}  // namespace orvan::engine
