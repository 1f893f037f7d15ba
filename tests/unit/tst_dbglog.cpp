#include "core/dbglog.h"
#include "kit/TestMain.h"
#include "kit/TestProcess.h"

#include <QtTest/QtTest>

#include <string>

Q_DECLARE_METATYPE(std::string)

/// The labels of entry and leave lines.
class TestDbglog : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void labelIsComponentAndQualifiedName_data();
    void labelIsComponentAndQualifiedName();
    void compilerGivesTheSameLabels();
};

void TestDbglog::labelIsComponentAndQualifiedName_data()
{
    QTest::addColumn<std::string>("signature");
    QTest::addColumn<std::string>("label");

    const auto row = [](const char* name, const char* signature, const char* label) {
        QTest::newRow(name) << std::string(signature) << std::string(label);
    };
    row("member", "virtual bool Engine::start(int) const", "P Engine::start");
    row("constructor", "Engine::Engine(const QString&, Owner*)", "P Engine::Engine");
    row("destructor", "virtual Engine::~Engine()", "P Engine::~Engine");
    row("free", "void dump(GstMessage*, GstState)", "P dump");
    row("static of a class", "static gboolean A::watch(GstBus*, void*)", "P A::watch");
    row("pointer result", "QSocketNotifier* Pipe::notifier()", "P Pipe::notifier");
    row("pointer result, clang", "QSocketNotifier *Pipe::notifier()", "P Pipe::notifier");
    row("reference result", "const T& A::b()", "P A::b");
    row("template result", "std::map<int, std::string> A::all()", "P A::all");
    row("function argument", "void A::each(void (*)(int), bool)", "P A::each");
    row("gcc unnamed namespace", "int {anonymous}::f()", "P f");
    row("clang unnamed namespace", "int (anonymous namespace)::f()", "P f");
    row("gcc template", "T f(T) [with T = void (*)(int)]", "P f");
    row("clang template", "T f(T) [T = int]", "P f");
    row("call operator", "int Less::operator()(int, int) const", "P Less::operator()");
    row("conversion", "A::operator const char*() const", "P A::operator const char*");
    row("name with operator in it", "int A::myoperatorX(int)", "P A::myoperatorX");
    row("name that ends like it", "int Box<my_operator>::f()", "P Box<my_operator>::f");
    row("free operator, nothing before", "operator new(std::size_t)", "P operator new");
    row("reference result, clang", "const T &A::b()", "P A::b");
    row("braces in a name", "int A<T{1, 2}>::f()", "P A<T{1, 2}>::f");
    row("gcc lambda", "A::f(int)::<lambda(int)>", "P A::f");
    row("gcc generic lambda", "A::f()::<lambda(auto:1)> [with auto:1 = int]", "P A::f");
    row("clang lambda", "auto A::f(int)::(anonymous class)::operator()(int) const", "P A::f");
    row("gcc member of a template", "void B<T>::h(const std::string&) [with T = int]", "P B<T>::h");
    row("clang member of a template", "void B<int>::h(const std::string &) [T = int]",
        "P B<int>::h");
    row("array argument", "void A::f(int (&)[3])", "P A::f");
    row("comparison", "bool operator<(const A&, const A&)", "P operator<");
    row("template class", "void Box<std::pair<int, int> >::put(int)",
        "P Box<std::pair<int, int> >::put");
    row("no arguments at all", "main", "P main");
    row("only arguments", "()", "P");
    row("blank first", " f()", "P f");
    row("unbalanced", "void f)", "P void f)");
    row("empty", "", "P");
}

void TestDbglog::labelIsComponentAndQualifiedName()
{
    QFETCH(std::string, signature);
    QFETCH(std::string, label);
    QCOMPARE(dbglog_scopedFunction(signature, "P"), label);
}

namespace {
struct Engine
{
    static std::string start(int /*a*/) { return __PRETTY_FUNCTION__; }
    template <typename T>
    static std::string make(T /*a*/)
    {
        return __PRETTY_FUNCTION__;
    }
};
} // namespace

void TestDbglog::compilerGivesTheSameLabels()
{
    QCOMPARE(dbglog_scopedFunction(__PRETTY_FUNCTION__, "SimplePlayer"),
             std::string("SimplePlayer TestDbglog::compilerGivesTheSameLabels"));
    const std::string lambda = [] { return std::string(__PRETTY_FUNCTION__); }();
    QCOMPARE(dbglog_scopedFunction(lambda, ""),
             std::string("TestDbglog::compilerGivesTheSameLabels"));
    QCOMPARE(dbglog_scopedFunction(Engine::start(1), ""), std::string("Engine::start"));
    QCOMPARE(dbglog_scopedFunction(Engine::make(1), ""), std::string("Engine::make"));
}

KOVA_TEST(TestDbglog)
#include "tst_dbglog.moc"
