#pragma once

namespace windows::com::xml {

// Makes the XML library ready for use, for as long as an object of this class lives.
//
// One must live while any document, node or schema does; the process holds one from before its first thread
// that reads XML to after the last. Further ones, in any thread, only count.
class Library {
public:
    Library();
    ~Library();
    Library(const Library&) = delete;
    Library& operator=(const Library&) = delete;
};

}  // namespace windows::com::xml
