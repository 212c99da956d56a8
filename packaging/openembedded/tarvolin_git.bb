# For kirkstone and later. No BitBake has run here: this project's own tests take the flags below and build with them, and
# ask for the version. What BitBake makes of the rest, in any release, is not tried.
#
# The sources have no public address yet. Say where yours are, in local.conf or a .bbappend, by one of
#   TARVOLIN_URI = "git://git.example.com/tarvolin.git;protocol=ssh;branch=main"    and SRCREV:pn-tarvolin
#   INHERIT += "externalsrc"
#   EXTERNALSRC:pn-tarvolin = "/path/to/tarvolin"
# and, when there is a licence (see LICENCE.md), LICENSE and LIC_FILES_CHKSUM.
SUMMARY = "Firmware updater for cellular modules on raw NAND flash"
SECTION = "base"
LICENSE = "CLOSED"

TARVOLIN_URI ?= ""
# Sources are unpacked in WORKDIR by older releases, in UNPACKDIR by newer ones, which refuse the name "git" there.
SRC_URI = "${@d.getVar('TARVOLIN_URI') + ';destsuffix=' + d.getVar('BP') if d.getVar('TARVOLIN_URI') else ''}"
S = "${@d.getVar('UNPACKDIR') or d.getVar('WORKDIR')}/${BP}"
PV = "${@tarvolin_version(d)}+git"

# From the sources' own tree, if the recipe lies there. For a copy in another layer, say TARVOLIN_VERSION.
def tarvolin_version(d):
    import os, re
    path = os.path.join(d.getVar("THISDIR"), "../../CMakeLists.txt")
    if not os.path.exists(path):
        return d.getVar("TARVOLIN_VERSION") or "0"
    with open(path) as file:
        return re.search(r"^project\(tarvolin VERSION ([0-9.]+)", file.read(), re.M)[1]

python () {
    if not d.getVar("TARVOLIN_URI") and not d.getVar("EXTERNALSRC"):
        raise bb.parse.SkipRecipe("say where the sources are: TARVOLIN_URI or EXTERNALSRC")
}

DEPENDS = "curl"
inherit cmake

EXTRA_OECMAKE = "-DTARVOLIN_TESTS=OFF -DTARVOLIN_HARDENED=ON"

# PACKAGECONFIG:append:pn-tarvolin = " fetch" builds tarv-fetch, too; " tools" builds tarv-watch, tarv-pkg and tarv-store
# (cli11 and libsodium are in meta-oe); " static-runtime" makes an updater that needs no libstdc++.so.
PACKAGECONFIG ?= ""
PACKAGECONFIG[fetch] = "-DTARVOLIN_FETCH=ON,-DTARVOLIN_FETCH=OFF,libsodium"
PACKAGECONFIG[tools] = "-DTARVOLIN_TOOLS=ON,-DTARVOLIN_TOOLS=OFF,cli11 libsodium"
PACKAGECONFIG[static-runtime] = "-DTARVOLIN_STATIC_RUNTIME=ON,-DTARVOLIN_STATIC_RUNTIME=OFF"

# tarv-restore is for an initramfs: IMAGE_INSTALL:append = " tarvolin-restore" in that image.
PACKAGES =+ "${PN}-fetch ${PN}-restore ${PN}-watch ${PN}-tools"
FILES:${PN}-restore = "${sbindir}/tarv-restore"
FILES:${PN}-fetch = "${sbindir}/tarv-fetch"
FILES:${PN}-watch = "${bindir}/tarv-watch"
FILES:${PN}-tools = "${bindir}/tarv-pkg ${bindir}/tarv-store"
FILES:${PN} += "${datadir}/bash-completion"

# What a run calls: see docs/integration.md. Without ubinfo a /data in use would pass for released.
RDEPENDS:${PN}-fetch = "${PN}"
RRECOMMENDS:${PN}-fetch = "ca-certificates"
RDEPENDS:${PN} = "mtd-utils-ubifs psmisc"
RRECOMMENDS:${PN} = "ca-certificates"
