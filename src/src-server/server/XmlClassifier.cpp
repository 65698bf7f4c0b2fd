#include "server/XmlClassifier.h"

#include <exception>
#include <limits>
#include <string_view>

#include "classifier/Classification.h"
#include "classifier/Classifier.h"
#include "classifier/ClassifierException.h"
#include "server/BadRequestException.h"
#include "server/CallException.h"
#include "server/ClassifierPath.h"
#include "server/ClassifierTransaction.h"
#include "server/DocumentRequest.h"
#include "server/ElementNames.h"
#include "server/ErrorResponse.h"
#include "server/InternalCallException.h"
#include "server/Log.h"
#include "server/PlainRequest.h"
#include "server/ReadAccess.h"
#include "server/Request.h"
#include "server/Response.h"
#include "server/StatusCode.h"
#include "server/XmlHook.h"
#include "util/FixedStream.h"
#include "util/Numbers.h"
#include "windows/com/xml/SchemaCache.h"
#include "windows/com/xml/XMLException.h"

namespace halvern::morvane {

namespace {

std::string_view view(const util::Bytes& bytes) { return {bytes.data(), bytes.size()}; }

// The text of a call's failure as the client gets it; cut at 4096 characters like any message.
std::string failureText(const CallException& failure, const char* kind, const char* advice) {
    util::FixedStream<4096> text;
    text << failure.what() << "\nCall id: " << failure.getCallId().c_str() << "\n"
         << kind << ": " << failure.getMethod().c_str() << "\n\n"
         << advice;
    return text.str();
}

constexpr std::uint64_t KEYWORD_LIMIT = 30;

// A word of a classifier with K classes has a share of 1 / K in each if it says nothing.
double minKeywordProbability(std::size_t classes) {
    return classes >= 2 ? 1.8 / (static_cast<double>(classes) + 1.0) : 0.0;
}

}  // namespace

XmlClassifier::XmlClassifier(JobDistribution& jobDistribution, const ResponseFactory& responseFactory,
                             const ErrorResponseFactory& errorResponseFactory,
                             const XmlHookFactory& xmlHookFactory,
                             const windows::com::xml::SchemaCache& schemaCache,
                             const std::string& requestNamespace, const std::string& rootPath, Log& log)
    : _jobDistribution(jobDistribution),
      _responseFactory(responseFactory),
      _errorResponseFactory(errorResponseFactory),
      _schemaCache(schemaCache),
      _requestNamespace(requestNamespace),
      _knowsSchema(schemaCache.fingerprint(requestNamespace) == PlainRequest::SCHEMA),
      _xmlHook(xmlHookFactory.create()),
      _log(log),
      _classifierRoot(classifierRoot(rootPath)) {}

XmlClassifier::~XmlClassifier() = default;

std::string& XmlClassifier::handle(std::string& out, const std::string& request) {
    try {
        return run(out, request);
    } catch (const windows::com::xml::ValidateException& exception) {
        const std::string text =
            std::string("Validation of an request failed, please verify your that your XML is correct.") +
            exception.what();
        _log.log(text);
        return _errorResponse->render(out, statusCode::BAD_REQUEST, text);
    } catch (const windows::com::xml::XMLException& exception) {
        return _errorResponse->render(
            out, statusCode::BAD_REQUEST,
            std::string("Caught XMLException exception while trying to read xml parameters. ") +
                exception.what());
    } catch (const WriteCallException& exception) {
        return _errorResponse->render(
            out, exception.getStatusCode(),
            failureText(exception, "WriteCall",
                        "One of the write calls failed. Therefore any previous call in the request was "
                        "rollbacked to avoid leaving the classifier in an undefined state (transactional "
                        "behaviour). Please fix the error and try again.\n"));
    } catch (const ReadCallException& exception) {
        return _errorResponse->render(
            out, exception.getStatusCode(),
            failureText(exception, "ReadCall",
                        "One of the read calls failed. Therefore the call sequence was not completed. Please "
                        "fix the error and try again.\n"));
    } catch (const exceptions::Exception& exception) {
        const std::string text =
            std::string("An error occurred when executing a classifier query.\n\n") + exception.what();
        _log.error(text);
        return _errorResponse->render(out, statusCode::INTERNAL_ERROR, text);
    } catch (const std::exception& exception) {
        util::FixedStream<1024> text;
        text << "A std exception occured when trying to read xml parameters, exception type: "
             << exception.what();
        _log.error(text.str());
        throw;
    } catch (...) {
        _log.error("An unknown ... exception was caught while trying to read xml parameters.");
        throw;
    }
}

std::string& XmlClassifier::run(std::string& out, const std::string& request) {
    _errorResponse = _errorResponseFactory.create();
    _xmlHook->save(request);
    std::unique_ptr<const Request> read;
    if (_knowsSchema) {
        read = PlainRequest::read(request, _requestNamespace);
    }
    if (!read) {
        read = std::make_unique<DocumentRequest>(request, _schemaCache, _requestNamespace);
    }
    _response = _responseFactory.create(read->getVersion());
    if (const RequestSequence* const readCalls = read->getReadCalls()) {
        runReadCalls(*readCalls);
    }
    if (const RequestSequence* const writeCalls = read->getWriteCalls()) {
        runWriteCalls(*writeCalls, out);
    } else {
        _response->render(out);
    }
    return out;
}

template <class Failure, class RunCall>
void XmlClassifier::runCalls(const RequestSequence& sequence, const char* sequenceName, RunCall runCall) {
    sequence.forEachCall([&](const RequestElement& call) {
        _callId = call.getAttribute(elementNames::ID);
        const std::string method = call.getTagName();
        try {
            if (!runCall(method, call)) {
                throw Failure(
                    method, _callId,
                    "The method " + method + " is not supported in the " + sequenceName + " sequence.",
                    statusCode::BAD_REQUEST);
            }
        } catch (const Failure&) {
            throw;
        } catch (const classifier::ClassifierException& exception) {
            throw Failure(method, _callId, exception.what(), statusCode::BAD_REQUEST);
        } catch (const BadRequestException& exception) {
            throw Failure(method, _callId, exception.what(), statusCode::BAD_REQUEST);
        } catch (const exceptions::Exception& exception) {
            util::FixedStream<4096> text;
            text << "Caught an exception while iterating calls. Method: " << method.c_str() << ". "
                 << exception.what();
            _log.error(text.str());
            throw Failure(method, _callId, exception.what(), statusCode::INTERNAL_ERROR);
        }
    });
}

void XmlClassifier::runReadCalls(const RequestSequence& readCalls) {
    static constexpr struct {
        std::string_view method;
        ReadCall run;
    } CALLS[] = {{elementNames::CLASSIFY, &XmlClassifier::classify},
                 {elementNames::CLASSIFY_KEYWORDS, &XmlClassifier::classifyKeywords},
                 {elementNames::GET_INFORMATION, &XmlClassifier::getInformation}};

    runCalls<ReadCallException>(readCalls, elementNames::READ_CALLS,
                                [&](const std::string& method, const RequestElement& call) {
                                    for (const auto& known : CALLS) {
                                        if (method == known.method) {
                                            (this->*known.run)(call);
                                            return true;
                                        }
                                    }
                                    return false;
                                });
}

void XmlClassifier::runWriteCalls(const RequestSequence& writeCalls, std::string& out) {
    static constexpr struct {
        std::string_view method;
        WriteCall run;
    } CALLS[] = {{elementNames::CREATE, &XmlClassifier::create},
                 {elementNames::REMOVE, &XmlClassifier::remove},
                 {elementNames::ADD_CLASS, &XmlClassifier::addClass},
                 {elementNames::REMOVE_CLASS, &XmlClassifier::removeClass},
                 {elementNames::TRAIN, &XmlClassifier::train},
                 {elementNames::UNTRAIN, &XmlClassifier::untrain}};

    const RequestElement& element = writeCalls.getElement();
    const std::string path = classifierPath(element);
    std::int64_t maxSize = 0;
    if (element.hasAttribute(elementNames::MAX_SIZE)) {
        using Limits = std::numeric_limits<std::int32_t>;
        maxSize = util::toInteger(element.getAttribute(elementNames::MAX_SIZE), Limits::min(), Limits::max());
    }
    // Whatever leaves this scope before the commit has come back ends the transaction, which takes all back.
    ClassifierTransactionImpl transaction(_jobDistribution, path);
    // A negative limit becomes one that no file reaches.
    WriteSequence sequence{transaction, static_cast<std::uint64_t>(maxSize)};
    runCalls<WriteCallException>(writeCalls, elementNames::WRITE_CALLS,
                                 [&](const std::string& method, const RequestElement& call) {
                                     for (const auto& known : CALLS) {
                                         if (method == known.method) {
                                             (this->*known.run)(call, sequence);
                                             return true;
                                         }
                                     }
                                     return false;
                                 });
    // Ahead of the commit: memory that runs out here must not leave a client without the news of its commit.
    _response->render(out);
    _replaced = transaction.commit();
}

void XmlClassifier::classify(const RequestElement& call) {
    const util::Bytes text = call.getText();
    const ReadAccess access(_jobDistribution, classifierPath(call));
    classifier::Classification classification;
    access->classify(view(text), classification);
    _response->classify(_callId, classification);
}

void XmlClassifier::classifyKeywords(const RequestElement& call) {
    const util::Bytes text = call.getText();
    const ReadAccess access(_jobDistribution, classifierPath(call));
    classifier::Keywords keywords(KEYWORD_LIMIT, minKeywordProbability(access->classCount()));
    access->classifyKeywords(view(text), keywords);
    // Keywords point into the classifier, so the response takes its copies under the lock.
    _response->classifyKeywords(_callId, keywords);
}

void XmlClassifier::getInformation(const RequestElement& call) {
    const ReadAccess access(_jobDistribution, classifierPath(call));
    _response->getInformation(_callId, access->getInformation());
}

void XmlClassifier::create(const RequestElement&, WriteSequence& sequence) {
    sequence.transaction.create();
    _response->create(_callId);
}

void XmlClassifier::remove(const RequestElement&, WriteSequence& sequence) {
    sequence.transaction.remove();
    _response->remove(_callId);
}

void XmlClassifier::addClass(const RequestElement& call, WriteSequence& sequence) {
    sequence.transaction.get().addClass(call.getAttribute(elementNames::CLASS_NAME));
    _response->addClass(_callId);
}

void XmlClassifier::removeClass(const RequestElement& call, WriteSequence& sequence) {
    classifier::Classifier& classifier = sequence.transaction.get();
    // A compaction costs as much as all that is learned, so a sequence pays for it only where compact lanes
    // are asked for: here, and once at its commit.
    classifier.compact();
    classifier.removeClass(call.getAttribute(elementNames::CLASS_NAME));
    _response->removeClass(_callId);
}

void XmlClassifier::train(const RequestElement& call, WriteSequence& sequence) {
    checkSize(sequence);
    const util::Bytes text = call.getText();
    classifier::Classifier& classifier = sequence.transaction.get();
    // Up to here another sequence may have made the file larger; from here on, the writer lock keeps it as it
    // is.
    checkSize(sequence);
    classifier.train(call.getAttribute(elementNames::CLASS_NAME), view(text));
    _response->train(_callId);
}

void XmlClassifier::untrain(const RequestElement& call, WriteSequence& sequence) {
    const util::Bytes text = call.getText();
    sequence.transaction.get().untrain(call.getAttribute(elementNames::CLASS_NAME), view(text));
    _response->untrain(_callId);
}

void XmlClassifier::checkSize(const WriteSequence& sequence) const {
    if (sequence.maxSize != 0 &&
        _jobDistribution.getSize(sequence.transaction.getName()) >= sequence.maxSize) {
        util::FixedStream<1024> text;
        text << "The classifier has reached the maximum allowed size of " << sequence.maxSize << " bytes.";
        throw InternalCallException(text.str());
    }
}

std::string XmlClassifier::classifierPath(const RequestElement& element) const {
    return _classifierRoot + element.getAttribute(elementNames::CLASSIFIER_NAME) + ".dat";
}

XmlClassifierFactoryImpl::XmlClassifierFactoryImpl(JobDistribution& jobDistribution,
                                                   const ResponseFactory& responseFactory,
                                                   const ErrorResponseFactory& errorResponseFactory,
                                                   const XmlHookFactory& xmlHookFactory,
                                                   const windows::com::xml::SchemaCache& schemaCache,
                                                   const std::string& requestNamespace,
                                                   const std::string& rootPath, Log& log)
    : _jobDistribution(jobDistribution),
      _responseFactory(responseFactory),
      _errorResponseFactory(errorResponseFactory),
      _xmlHookFactory(xmlHookFactory),
      _schemaCache(schemaCache),
      _requestNamespace(requestNamespace),
      _rootPath(rootPath),
      _log(log) {}

std::unique_ptr<StringClassifier> XmlClassifierFactoryImpl::create() const {
    return std::make_unique<XmlClassifier>(_jobDistribution, _responseFactory, _errorResponseFactory,
                                           _xmlHookFactory, _schemaCache, _requestNamespace, _rootPath, _log);
}

}  // namespace halvern::morvane
