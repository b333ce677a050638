#pragma once

// Names of the XML schema that describes a configuration. Constants of every source that includes them.

namespace qcfg {

/// Prefix of the XML Schema namespace.
constexpr const char* c_schemaPrefix = "xs";
/// The XML Schema namespace of the W3C.
constexpr const char* c_schemaNamespace = "http://www.w3.org/2001/XMLSchema";
/// Prefix of the namespace of the framework's own types.
constexpr const char* c_typePrefix = "vardo";
/// The namespace of the framework's own types.
constexpr const char* c_typeNamespace = "urn:zelkor:configuration:types";
/// What the name of a numbered object begins with, as an XML name must not begin with a digit.
constexpr const char* c_idPrefix = "ID_";

}  // namespace qcfg
