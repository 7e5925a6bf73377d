// One call of each side of the document comparison, for callgrind (bench/report counts the
// instructions of exactly these calls). Not inlined, so that they show up as functions.
#pragma once

#include <string>

// ProcessJSONData of doc, as a check-in's configuration meets it; resetDocument drops the
// settings it filled, so that the next call starts from a fresh settings object.
int processDocument(const std::string& doc);
void resetDocument();
// yajl_tree_parse and yajl_tree_free of doc.
int yajlTreeParse(const std::string& doc);

// The same, through a frame of their own that callgrind collects (the warm-up calls go to the
// functions above directly).
__attribute__((noinline)) int measureProcessJSONData(const std::string& doc);
__attribute__((noinline)) int measureYajlTreeParse(const std::string& doc);
