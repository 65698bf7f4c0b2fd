#pragma once

// The types of the XML library that our headers name, so that they don't bring in the library's.
// NOLINTBEGIN(bugprone-reserved-identifier): the names are the library's.
struct _xmlDoc;
struct _xmlError;
struct _xmlNode;
struct _xmlSchema;
struct _xmlXPathContext;
struct _xmlXPathObject;
// NOLINTEND(bugprone-reserved-identifier)
