#include "core/dbglog.h"

#include <algorithm>
#include <cctype>

namespace {

/// Returns the position of the parenthesis that opens the argument list, or npos.
///
/// Compilers write template arguments after the argument list in square brackets
/// ("T f(T) [with T = int]"). Searching backwards from there for the balanced pair skips the
/// parentheses of argument types and of "operator()".
std::size_t argumentListBegin(const std::string& signature)
{
    const std::size_t end = signature.rfind(')', signature.find(" ["));
    if (end == std::string::npos) {
        return std::string::npos;
    }
    int depth = 0;
    for (std::size_t i = end + 1; i-- > 0;) {
        if (signature[i] == ')') {
            ++depth;
        } else if (signature[i] == '(' && --depth == 0) {
            return i;
        }
    }
    return std::string::npos;
}

/// Returns the start of the qualified name that ends at `end`: the position after the last blank,
/// '*' or '&' of the result type that is not inside brackets.
std::size_t qualifiedNameBegin(const std::string& signature, std::size_t end)
{
    const std::size_t operatorName = signature.rfind("operator", end);
    const bool isOperator =
        operatorName != std::string::npos &&
        (operatorName == 0 ||
         !(std::isalnum(static_cast<unsigned char>(signature[operatorName - 1])) ||
           signature[operatorName - 1] == '_'));
    int depth = 0;
    for (std::size_t i = isOperator ? operatorName : end; i-- > 0;) {
        const char c = signature[i];
        if (c == '>' || c == ')' || c == '}') {
            ++depth;
        } else if (c == '<' || c == '(' || c == '{') {
            --depth;
        } else if (depth == 0 && (c == ' ' || c == '*' || c == '&')) {
            return i + 1;
        }
    }
    return 0;
}

/// Returns the signature of the function that encloses a lambda; any other signature unchanged.
std::string withoutLambda(const std::string& signature)
{
    const std::size_t gcc = signature.find("::<lambda(");
    const std::size_t clang = signature.find("::(anonymous class)::operator()");
    return signature.substr(0, std::min(gcc, clang));
}

void removeAll(std::string& text, const std::string& what)
{
    for (std::size_t at = text.find(what); at != std::string::npos; at = text.find(what)) {
        text.erase(at, what.size());
    }
}

} // namespace

std::string dbglog_scopedFunction(const std::string& fullSignature, const std::string& component)
{
    const std::string signature = withoutLambda(fullSignature);
    std::string name = signature;
    const std::size_t arguments = argumentListBegin(signature);
    if (arguments != std::string::npos) {
        const std::size_t begin = qualifiedNameBegin(signature, arguments);
        name = signature.substr(begin, arguments - begin);
    }
    removeAll(name, "{anonymous}::");           // gcc
    removeAll(name, "(anonymous namespace)::"); // clang
    if (component.empty() || name.empty()) {
        return component + name;
    }
    return component + ' ' + name;
}
