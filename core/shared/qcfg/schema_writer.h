#pragma once

#include <string>

#include "qcfg/schema.h"

namespace qcfg {

/// The rules as a W3C XML schema (version 1.0, prefix "xs"), with their explanations as annotations. Everything that
/// the checker accepts is valid by the schema, namespaces apart; the schema is weaker than the checker where XML schema
/// cannot say what a rule says:
/// - children in any order of which one kind may repeat: the schema does not count the others nor demand one;
/// - variants: the schema allows what any of them allows and demands only what all do;
/// - blanks around a number are passed over;
/// - hexadecimal numbers are held to 32 bits but not to their range, IPv6 addresses and ids of a list only to their
///   letters;
/// - numbers with a fraction are passed over that are too large for any number;
/// - the rules' own checks (ElementRule::check) are not in it.
/// Any thread.
/// @throws qstd::Exception when two different value types have one name, or when memory runs out.
std::string WriteSchema(const ElementRule& root);

}  // namespace qcfg
