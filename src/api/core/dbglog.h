/// @file
/// Labels of functions in log lines.

#ifndef KOVA_DBGLOG_H
#define KOVA_DBGLOG_H

#include "core/kova_api_export.h"

#include <string>

/// Returns the short label of a function for its entry and leave log lines.
///
/// The label is the component, a blank, and the qualified name of the function without result type,
/// argument list, template arguments of the function, and unnamed namespaces:
/// `dbglog_scopedFunction("virtual bool Engine::start(int) const", "Player")` returns
/// "Player Engine::start". A lambda has the label of its enclosing function. The signatures of gcc
/// and clang give the same label, except for the arguments of a class template.
///
/// This function is thread-safe.
///
/// @param signature  the function's full signature, `__PRETTY_FUNCTION__`
/// @param component  the name of the library or program that logs
/// @return the label; a signature without an argument list is used as the name unchanged
KOVA_API_EXPORT std::string dbglog_scopedFunction(const std::string& signature,
                                                  const std::string& component);

#endif
