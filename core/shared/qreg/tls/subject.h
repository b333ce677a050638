#pragma once

#include <string>

struct x509_st;

namespace qreg::tls {

/// The subject of a certificate as `openssl x509 -noout -subject -nameopt RFC2253` prints it, behind "subject=": the
/// last attribute first, letters that mean something escaped, all that is not ASCII as "\XX". No two subjects print
/// alike, whatever stands in them. Any thread.
std::string SubjectOf(const x509_st& certificate);

/// A subject that a person wrote, in the form of SubjectOf. It may have blanks around "," and "+", letters that are not
/// ASCII as they are, attributes by a long name ("commonName") or by their number. Any thread.
/// @throws qstd::Exception naming @p text and what is wrong with it.
std::string CanonicalSubject(const std::string& text);

}  // namespace qreg::tls
