// The entry point and the run driver.
#define ZEL_SOURCE "media/main"

#include <clocale>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <sched.h>
#include <unistd.h>

#include "media/InstallLayout.h"
#include "media/MainArguments.h"
#include "media/MediaInfo.h"
#include "media/ProbeHelper.h"
#include "media/Progress.h"
#include "media/TagCharset.h"
#include "media/TagCounter.h"
#include "media/TagReader.h"
#include "zel/DateTime.h"
#include "zel/Debug.h"
#include "zel/Exception.h"
#include "zel/Files.h"
#include "zel/Process.h"
#include "zel/SQL.h"
#include "zel/Utf8.h"
#include "zel/Writer.h"

namespace ZELd {

// Runs the chosen mode over the first PATH.
void __main(const MainArguments& args)
{
    ZEL_ASSERT(!args.values().isEmpty());
    String path = args.values()[0];
    if (args.summary()) {
        TagCounter counter;
        if (Files::isDirectory(path)) TagCounter::readDir(path, counter, args);
        else TagCounter::read(path, counter);
        args.output() << L"[" << path << L"] " << counter.toString() << endl;
        return;
    }
    TagCharset charset(args.charset()); // this thread reads the tags
    TagReader reader(args);
    if (Files::isDirectory(path)) {
        reader.readDir(path);
    } else {
        // The record keeps references to both names while the file is read.
        const String dir = Files::dirname(path);
        const String name = Files::basename(path);
        reader.readFile(dir, name);
    }
}

namespace {

// Binds the debug report to a writer for as long as the binding lives.
class ReportBinding {
public:
    explicit ReportBinding(Writer& w) { ZELDebugSetGlobalReport(&w); }
    ~ReportBinding() { ZELDebugSetGlobalReport(nullptr); }
    ReportBinding(const ReportBinding&) = delete;
    ReportBinding& operator=(const ReportBinding&) = delete;
};

// Driver modules sit beside the program in a build and in their own directory
// of an install, where each driver but SQLite comes in a package of its own.
void configureDatabaseAccess()
{
    SQLConfiguration setUp;
    setUp.moduleDirectories.push_back(kModuleDirectory);
    for (const DriverPackage& driver : kDriverPackages)
        setUp.installHints.emplace_back(driver.driver, String(L"install the package ") + driver.package);
    setUp.applicationName = kProgramName;
    SQLConnection::configure(std::move(setUp));
}

// The run driver's handler: what ends the walk, or a failure to print the
// closing lines, is reported on the error writer and the run goes on to its end.
void report(const MainArguments& args, Exception* e)
{
    args.errout() << e->toStringAll() << endl;
    e->destroy();
}

void run(MainArguments& args)
{
    Writer& out = args.output();
    String separator;
    separator.assign(L'=', 80);
    out << L"Start [" << DateTime::getCurrentLocalTime().toString() << L"]" << endl;
    if (args.verbose()) out << L"      [" << args.toString() << L"]" << endl;
    out << separator << endl;
    MediaInfo::initialize();
    try {
        __main(args);
    } catch (Exception* e) {
        report(args, e);
    }
    MediaInfo::cleanup();
    try {
        out << separator << endl;
        out << L"Finish [" << DateTime::getCurrentLocalTime().toString() << L"]" << endl;
        out.flush();
    } catch (Exception* e) {
        report(args, e);
    }
}

} // namespace
} // namespace ZELd

int main(int argc, char** argv)
{
    using namespace ZELd;
    std::setlocale(LC_ALL, "");
    std::signal(SIGPIPE, SIG_IGN); // a closed pipe fails a write like any other failure
    // A batch job: a process woken by its helper's answer (or a helper by
    // the program's question) does not cut the other short. Where they share
    // a core, each goes on with the files it has before the other runs. The
    // helpers inherit it.
    const sched_param batch{};
    ::sched_setscheduler(0, SCHED_BATCH, &batch);
    ZELInitializeD();
    // A helper process of the program's: it probes files and leaves at once,
    // with nothing of the program's start-up or shut-down.
    if (argc == 2 && std::strcmp(argv[1], kProbeHelperWord) == 0) ::_exit(serveProbes());
    configureDatabaseAccess();
    try {
        FileWriter output(STDOUT_FILENO, nullptr);
        FileWriter errout(STDERR_FILENO, nullptr);
        errout.setLineFlush(true);
        errout.setSilent(true); // a failing standard error never stops the walk
        errout.tie(&output);
        ReportBinding binding(errout);
        MainArguments args(output, errout);
        if (args.parse(argc, argv, true)) {
            const Progress progress(errout);
            run(args);
        }
        output.flush();
        ZELDebugDumpGlobalMemoryLeak(args.verbose() ? 1 : 0, errout);
    } catch (Exception* e) {
        // The writers are gone by now: the standard error stream takes the report.
        std::string text = toUtf8(e->toStringAll().str());
        std::fprintf(stderr, "Warning!! Final Exception: %s\n", text.c_str());
        e->destroy();
    }
    ZELCleanupD();
    return 0;
}
