#pragma once

#include "debug/Assertion.h"

namespace util {

// Calls a method when the scope ends, unless it has been called or dismissed before: the guard that undoes a
// step on every early way out.
//
//     util::MethodCaller0 undo(table, &Table::removeLast);
//     ...
//     undo.dismiss();
//
// The object is not owned. A method that throws when the scope ends is a failed check.
template <class Object, class Method>
class MethodCaller0 {
public:
    MethodCaller0(Object& object, Method method) : _object(object), _method(method) {}
    MethodCaller0(const MethodCaller0&) = delete;
    MethodCaller0& operator=(const MethodCaller0&) = delete;

    virtual ~MethodCaller0() {
        try {
            MethodCaller0::execute();
        } catch (...) {
            CHECK(false);
        }
    }

    // Calls the method now. If it throws, the guard stays armed.
    virtual void execute() {
        if (!_done) {
            (_object.*_method)();
            _done = true;
        }
    }

    virtual void dismiss() { _done = true; }

private:
    Object& _object;
    const Method _method;
    bool _done = false;
};

// The same for a method with one argument. The argument is not copied and must live as long as the guard.
template <class Object, class Method, class Argument>
class MethodCaller1 {
public:
    MethodCaller1(Object& object, Method method, Argument& argument)
        : _object(object), _method(method), _argument(&argument) {}
    MethodCaller1(const MethodCaller1&) = delete;
    MethodCaller1& operator=(const MethodCaller1&) = delete;

    virtual ~MethodCaller1() {
        try {
            MethodCaller1::execute();
        } catch (...) {
            CHECK(false);
        }
    }

    // Calls the method now. If it throws, the guard stays armed.
    virtual void execute() {
        if (!_done) {
            (_object.*_method)(*_argument);
            _done = true;
        }
    }

    virtual void dismiss() { _done = true; }

private:
    Object& _object;
    const Method _method;
    Argument* const _argument;
    bool _done = false;
};

}  // namespace util
