#include "platform/thread/InheritableThreadImpl.h"

namespace platform::thread {

InheritableThreadImpl::InheritableThreadImpl(const ThreadFactory& threadFactory)
    : _thread(threadFactory.create(*this)) {}

void InheritableThreadImpl::start() { _thread->start(); }

bool InheritableThreadImpl::join(std::uint64_t milliseconds) { return _thread->join(milliseconds); }

void InheritableThreadImpl::join() { _thread->join(); }

bool InheritableThreadImpl::isCurrent() const { return _thread->isCurrent(); }

void InheritableThreadImpl::setName(const std::string& name) { _thread->setName(name); }

std::string InheritableThreadImpl::getName() const { return _thread->getName(); }

}  // namespace platform::thread
