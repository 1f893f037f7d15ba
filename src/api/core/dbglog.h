/// @file
/// The labels of functions in log lines.

#ifndef KOVA_DBGLOG_H
#define KOVA_DBGLOG_H

#include "core/kova_api_export.h"

#include <string>

/// Makes the short label of a function that stands in its entry and leave log lines.
///
/// The result is the component, a blank, and the qualified name of the function without its
/// result type, argument list, template arguments of the function and unnamed namespaces:
/// `dbglog_scopedFunction("virtual bool Engine::start(int) const", "Player")` returns
/// "Player Engine::start". A lambda has the label of the function that it stands in. The texts of
/// gcc and clang for one function give the same label, but for the arguments of a class template.
///
/// @param signature  the function's full signature, that is `__PRETTY_FUNCTION__`
/// @param component  the name of the library or program that logs
/// @return the label; a signature without an argument list is taken for the name as it stands
///
/// May be called from any thread.
KOVA_API_EXPORT std::string dbglog_scopedFunction(const std::string& signature,
                                                  const std::string& component);

#endif
