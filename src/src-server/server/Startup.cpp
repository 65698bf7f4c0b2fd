#include "server/Startup.h"

#include <algorithm>
#include <memory>
#include <new>

#include "exceptions/Exception.h"
#include "io/filesystem/DirectoryLock.h"
#include "io/filesystem/Leftovers.h"
#include "net/server/ThreadServer.h"
#include "net/socket/SocketInitializer.h"
#include "platform/thread/LoggingThreadFactoryImpl.h"
#include "server/ClassifierCallbackFactoryImpl.h"
#include "server/ClassifierFactoryImpl.h"
#include "server/ClassifyConnection.h"
#include "server/ConnectionParams.h"
#include "server/EmptyXmlHookImpl.h"
#include "server/JobDistribution.h"
#include "server/LogLevel.h"
#include "server/Memory.h"
#include "server/ServiceControl.h"
#include "server/Start.h"
#include "server/StartupException.h"
#include "server/TerminateHandlerImpl.h"
#include "server/XmlClassifier.h"
#include "server/XmlErrorResponseImpl.h"
#include "server/XmlHookImpl.h"
#include "server/XmlResponseImpl.h"
#include "server/systemtest/SystemTestImpl.h"
#include "util/FixedStream.h"
#include "util/MethodCaller.h"
#include "util/StringHelper.h"
#include "windows/com/xml/Document.h"
#include "windows/com/xml/Library.h"
#include "windows/com/xml/SchemaCache.h"
#include "windows/file/CurrentDirectory.h"
#include "windows/file/DiskSpace.h"
#include "windows/file/Module.h"
#include "windows/services/SCManager.h"

namespace halvern::morvane {

using windows::services::ServiceState;

namespace {

// Reported when the service has ended because it lost the manager.
constexpr std::uint32_t MANAGER_LOST = 987654;
constexpr std::uint64_t MEGABYTE = 1'000'000;

// Failures of threads and of the server reach the operator through the one log.
class MorvaneThreadLog final : public platform::thread::ThreadLog {
public:
    explicit MorvaneThreadLog(Log& log) : _log(log) {}
    void log(const std::string& text) override { _log.error(text); }

private:
    Log& _log;
};

class ServerLog final : public net::server::ThreadServerLog {
public:
    explicit ServerLog(Log& log) : _log(log) {}
    void log(const char* text) noexcept override { _log.error(text); }

private:
    Log& _log;
};

// A schema file as the server uses it.
struct Schema {
    explicit Schema(const std::string& path) {
        document.setResolveExternals(true);
        document.load(path);
        targetNamespace = document.getTargetNamespace();
        version = document.getRootElement().getAttribute("version");
    }

    windows::com::xml::Document document;
    std::string targetNamespace;
    std::string version;
};

}  // namespace

Startup::Startup(int argc, const char* const* argv, LogImpl& log,
                 const platform::memory::MemoryStatus& memoryStatus,
                 const windows::seh::SehExceptionMapper& sehMapper, const io::filesystem::SaveFile& saveFile,
                 const io::filesystem::ExistsDir& existsDir, const io::filesystem::ExistsFile& existsFile,
                 const io::filesystem::LoadFile& loadFile, const io::filesystem::SizeFile& sizeFile,
                 const io::filesystem::RemoveFile& removeFile,
                 const windows::file::CreateFolder& createFolder, const std::string& configSchemaPath,
                 const std::string& requestSchemaPath, const std::string& responseSchemaPath)
    : _log(log),
      _memoryStatus(memoryStatus),
      _sehMapper(sehMapper),
      _mode(modeOf(argc, argv)),
      _saveFile(saveFile),
      _existsDir(existsDir),
      _existsFile(existsFile),
      _loadFile(loadFile),
      _sizeFile(sizeFile),
      _removeFile(removeFile),
      _createFolder(createFolder),
      _configSchemaPath(configSchemaPath),
      _requestSchemaPath(requestSchemaPath),
      _responseSchemaPath(responseSchemaPath) {
    enterProgramDirectory();
    openLogFile();
    readCommandLine(argc, argv);
}

void Startup::enterProgramDirectory() const {
    const std::string program = windows::file::ModuleImpl().fileName();
    windows::file::CurrentDirectoryImpl().set(util::StringHelper::directoryOf(program));
}

void Startup::openLogFile() {
    makeFolder(LOG_DIRECTORY, std::string("The directory '") + LOG_DIRECTORY, true);
    _log.setToFile(true);
}

void Startup::readCommandLine(int argc, const char* const* argv) {
    if (argc <= 1) {
        throw ArgStartupException("No arguments specified.");
    }
    try {
        declareFlags(_mode, _arguments);
        _arguments.parse(static_cast<std::uint32_t>(argc - 1), argv + 1);
    } catch (const exceptions::Exception& e) {
        throw ArgStartupException(e.what());
    }
    _runningAsService = _mode == Mode::SERVE_AS_SERVICE;
    if (_mode == Mode::TEST) {
        _stopEvent.set();  // when the tests have run, there is nothing to wait for
    }
    _log.setToConsole(!_arguments.hasFlag("-quiet") && !_runningAsService);

    util::FixedStream<1024> line;
    line << "Executing ";
    for (int i = 0; i < argc; ++i) {
        line << (i == 0 ? "" : " ") << argv[i];
    }
    _log.log(line.str());
}

int Startup::run() {
    try {
        if (!commandService()) {
            serve();
        }
        return 0;
    } catch (...) {
        logStartupFailure(_log);
        return 1;
    }
}

// True if the command line asks for something about the service, which has been done then.
bool Startup::commandService() {
    const windows::services::SCManagerFactoryImpl managers;
    switch (_mode) {
        case Mode::INSTALL: {
            const windows::com::xml::Library xmlLibrary;
            installService(SERVICE_NAME, _arguments.getArgument("-config"),
                           ConfigurationReader(_configSchemaPath), _createFolder, managers);
            _log.log("Successfully installed the service.");
            return true;
        }
        case Mode::UNINSTALL:
            uninstallService(SERVICE_NAME, managers);
            _log.log("Successfully uninstalled the service.");
            return true;
        case Mode::START:
            startService(SERVICE_NAME, managers);
            _log.log("Successfully started the service.");
            return true;
        case Mode::STOP:
            stopService(SERVICE_NAME, managers);
            _log.log("Successfully stopped the service.");
            return true;
        default:
            return false;
    }
}

std::string Startup::getServiceName() const { return SERVICE_NAME; }

void Startup::serviceMain() {
    try {
        registerHandler();
        setStatus(ServiceState::START_PENDING);
        // Running is reported by serve, once there is something to connect to.
        const int result = run();
        setStatus(ServiceState::STOPPED, static_cast<std::uint32_t>(result));
    } catch (const windows::services::ServiceMainException& e) {
        _log.log(std::string("An error occured when trying to run the service. ") + e.what());
        reportToManager(ServiceState::STOPPED, MANAGER_LOST);
    }
}

std::uint32_t Startup::handler(std::uint32_t control) {
    switch (control) {
        case windows::services::serviceControl::STOP:
            _log.log("Stopping the service from SCM.");
            reportToManager(ServiceState::STOP_PENDING);
            _stopEvent.set();
            return 0;
        case windows::services::serviceControl::INTERROGATE:
            _log.log("Interrogate the service from SCM.");
            reportToManager(state());
            return 0;
        default:
            return windows::services::serviceControl::NOT_IMPLEMENTED;
    }
}

// A manager that can't be told must not keep the service from obeying it.
void Startup::reportToManager(ServiceState state, std::uint32_t exitCode) noexcept {
    try {
        setStatus(state, exitCode);
    } catch (const exceptions::Exception& e) {
        _log.error(e.what());
    } catch (const std::exception& e) {
        _log.error(e.what());
    }
}

void Startup::serve() {
    const windows::com::xml::Library xmlLibrary;
    const net::socket::SocketInitializerImpl sockets;
    TerminateHandlerImpl terminateHandler(_log);
    terminateHandler.install();

    const std::string configurationPath = _arguments.getArgument("-config");
    _log.log("Initializing server v2.40");
    if (_runningAsService) {
        _log.log("Running server as a service.");
    }
    Configuration configuration = readConfiguration(configurationPath);
    std::uint32_t queueSize = static_cast<std::uint32_t>(configuration.clientQueueSize);
    if (_mode == Mode::TEST) {
        configuration.saveRequests = false;  // what the tests send is of no interest to anybody
        // Those of the clients that get no place at once must find room, and so much of it that they don't
        // look like a siege, since a full queue turns them away.
        queueSize = std::max(queueSize, 4 * SystemTest::CLIENTS_AT_ONCE);
    }
    _log.log("Using config settings:\n" + configuration.document);
    _log.log("System settings:\n" + systemFigures());
    _log.log(memoryOfRequests(configuration.maxInput, configuration.maxClients));

    const std::string root = configuration.rootPath();
    makeFolder(root, "The root training path '" + root, true);
    const io::filesystem::DirectoryLock rootLock(root);
    // Only now, with the root in this process's hands alone, is every temporary file a leftover.
    io::filesystem::removeLeftovers(root);
    makeFolder(CAPTURE_DIRECTORY, std::string("The directory '") + CAPTURE_DIRECTORY,
               configuration.saveRequests);
    _log.setDumpOnError(true);

    ClassifierCallbackFactoryImpl callbackFactory(_log);
    const ClassifierFactoryImpl classifierFactory;
    JobDistributionImpl jobDistribution(classifierFactory, _memoryStatus, _loadFile, _saveFile, _existsFile,
                                        _sizeFile, _removeFile, callbackFactory, root, _log);
    windows::com::xml::SchemaCache schemas;
    Schema requestSchema(_requestSchemaPath);
    schemas.add(requestSchema.document, requestSchema.targetNamespace);
    const Schema responseSchema(_responseSchemaPath);
    const XmlErrorResponseFactoryImpl errorResponseFactory(responseSchema.targetNamespace,
                                                           responseSchema.version);
    const XmlResponseFactoryImpl responseFactory(responseSchema.targetNamespace);
    const windows::file::DiskSpaceImpl diskSpace;
    const XmlHookFactoryImpl capturingHooks(_saveFile, _log, CAPTURE_DIRECTORY, diskSpace);
    const EmptyXmlHookFactoryImpl emptyHooks;
    const XmlHookFactory& hooks =
        configuration.saveRequests ? static_cast<const XmlHookFactory&>(capturingHooks) : emptyHooks;
    const XmlClassifierFactoryImpl xmlClassifierFactory(jobDistribution, responseFactory,
                                                        errorResponseFactory, hooks, schemas,
                                                        requestSchema.targetNamespace, root, _log);

    MorvaneThreadLog threadLog(_log);
    ServerLog serverLog(_log);
    const ConnectionParams params{
        // A limit below zero widens to a number that no request reaches: no limit.
        .maxInput = static_cast<std::uint64_t>(static_cast<std::int64_t>(configuration.maxInput)),
        .log = _log,
        .classifierFactory = xmlClassifierFactory,
        .errorResponseFactory = errorResponseFactory,
        .terminateHandler = terminateHandler,
    };
    platform::thread::LoggingThreadFactoryImpl threadFactory(&threadLog, &_sehMapper);
    net::server::ThreadServer<ClassifyConnection, const ConnectionParams*> server(
        threadFactory, configuration.port, configuration.maxClients, queueSize, &params, &serverLog);

    util::FixedStream<128> line;
    line << "Starting server on port " << configuration.port << ".";
    _log.log(line.str());
    server.start();
    // From here on whatever throws must leave no thread behind.
    util::MethodCaller0 stopServer(server, &net::server::ThreadServerBase::stop);
    if (_mode == Mode::TEST) {
        _log.log("Running system tests.");
        std::uint32_t passed = 0;
        {
            // Most of what the tests do is wrong on purpose and would only look like trouble in the log.
            _log.setLevel(logLevel::failure);
            const util::MethodCaller1 restoreLevel(_log, &LogImpl::setLevel, configuration.logLevel);
            passed = SystemTestImpl(_log).run(server.port());
            server.stop();
        }
        line.setPosition(0);
        line << passed << " tests passed!";
        _log.test(line.str());
    } else {
        _log.log("Waiting for connections...");
        if (_runningAsService) {
            setStatus(ServiceState::RUNNING);
        }
    }
    _stopEvent.wait();
    // The accept that fails when the listener closes is an error line of every stop. It needs no dump, which
    // would only take one of the places that real failures may need.
    _log.setDumpOnError(false);
    stopServer.execute();
    server.join();
    _log.log("Closing server.");
}

Configuration Startup::readConfiguration(const std::string& path) {
    const ConfigurationReader reader(_configSchemaPath);
    return reader.read(path, [this](std::uint32_t level, bool logMemory) {
        _log.setLogMemory(logMemory);
        _log.setLevel(level);
    });
}

void Startup::makeFolder(const std::string& path, const std::string& complaint, bool verify) const {
    _createFolder.create(path, false);
    if (verify && !_existsDir.exists(path)) {
        throw SystemStartupException(complaint + "' doesn't exist. Make sure you create it!");
    }
}

std::string Startup::systemFigures() const {
    util::FixedStream<1024> figures;
    figures << "Total physical memory: " << _memoryStatus.total() / MEGABYTE << "MB\n"
            << "Available physical memory: " << _memoryStatus.available() / MEGABYTE << "MB\n"
            << "Available disk space on /: " << windows::file::DiskSpaceImpl().free("/") / MEGABYTE << "MB\n";
    return figures.str();
}

void logStartupFailure(Log& log) {
    try {
        throw;
    } catch (const exceptions::Exception& e) {
        log.error(std::string("An exception occured when trying to startup the server. ") + e.what());
    } catch (const std::bad_alloc& e) {
        log.error(std::string("Caught a bad alloc exception. ") + e.what());
    } catch (const std::exception& e) {
        log.error(std::string("Caught an exception. ") + e.what());
    } catch (...) {
        log.error("A ... exception occured when trying to startup the server.");
    }
}

}  // namespace halvern::morvane
