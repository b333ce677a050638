#include "qapp/configuration_manual.h"

#include "qcfg/manual_writer.h"

namespace qapp {

namespace {

constexpr const char* c_begin =
    R"(.\" Written by `cmake --build --preset dev --target configuration_reference` from the rules in
.\" core/shared/qapp/configuration_rules.cpp and daemon/configuration_rules.cpp, with what stands around them from
.\" core/shared/qapp/configuration_manual.cpp. Change those, not this page: a test compares the two.
.TH ZELKOR\-PLATFORMD.XML 5 2026-11-21 zelkor-platformd "File Formats"
.SH NAME
zelkor\-platformd.xml \- configuration of the platform daemon
.SH SYNOPSIS
/etc/zelkor/zelkor\-platformd.xml
.SH DESCRIPTION
The configuration of
.BR zelkor\-platformd (8)
is one XML file, whose root element is
.BR <zelkor> .
Sections and their children may come in any order.
Relative paths are relative to the file.
Options on the command line win over the file.
No external entity is ever loaded.
.PP
The daemon reads it once, at its start.
A file that cannot be read, or whose sections
.BR <service> ,
.B <registry>
or
.B <boards>
are wrong, ends the start with a message that names file and line.
A worker goes on with the default where a setting of its own section is wrong, so that the chassis does not stay without
one: prove a file before it is used.
.B zelkor\-platformd \-\-check\-config
does, by the rules below, and prints each finding as
.IB FILE : LINE :
error|warning:
.IR text .
.B zelkor\-platformd \-\-print\-schema
prints the same rules as an XML schema for editors.
.PP
A value has no blanks around it.
Numbers are decimal; in the text of an element they may also be hexadecimal with 0x.
)";

constexpr const char* c_end = R"(.SH FILES
.TP
.I /etc/zelkor/zelkor\-platformd.xml
The configuration that is read when the option
.B \-\-config
names no other.
.SH EXAMPLES
A simulated chassis, fans that follow the temperatures, and clients of this host that may write:
.PP
.in +4n
.EX
<?xml version="1.0" encoding="UTF\-8"?>
<zelkor>
  <registry>
    <write from="127.0.0.0/8"/>
    <write from="::1"/>
  </registry>
  <boards backend="sim" control="/run/zelkor/chassis.sock"/>
  <monitor>
    <frequency>10</frequency>
    <sensors>
      <exclude board="os/0">all</exclude>
    </sensors>
  </monitor>
  <temperature_control>
    <frequency>10</frequency>
    <fans>
      <set lower="20" upper="35" rpm="2500"/>
      <set lower="30" upper="45" rpm="4000"/>
      <set lower="40" upper="60" rpm="6500"/>
    </fans>
    <sensors>
      <exclude board="icb/0">all</exclude>
    </sensors>
  </temperature_control>
</zelkor>
.EE
.in
.PP
A board with a management controller on the LAN; the password is the only line of a file that nobody else may read:
.PP
.in +4n
.EX
<boards backend="ipmi">
  <board uri="io/1" type="io" name="IO1" host="10.0.0.11"
         user="operator" password\-file="io1.pass"/>
</boards>
.EE
.in
.SH SEE ALSO
.BR zelkor\-chassisctl (1),
.BR zelkor\-regctl (1),
.BR zelkor\-platformd (8)
)";

}  // namespace

std::string ConfigurationManual(const qcfg::ElementRule& rules) {
    return qcfg::WriteManual(rules, c_begin, c_end);
}

}  // namespace qapp
