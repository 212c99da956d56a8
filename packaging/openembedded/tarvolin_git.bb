# For kirkstone and later. Not built by this project's own tests: those configure with the flags below, no more.
#
# The sources have no public address and no public licence yet. Say where yours are, in local.conf or a .bbappend, by one of
#   TARVOLIN_URI = "git://git.example.com/tarvolin.git;protocol=ssh;branch=main"    and SRCREV:pn-tarvolin
#   INHERIT += "externalsrc"
#   EXTERNALSRC:pn-tarvolin = "/path/to/tarvolin"
# and, when you know the licence, LICENSE and LIC_FILES_CHKSUM.
SUMMARY = "Firmware updater for cellular modules on raw NAND flash"
SECTION = "base"
LICENSE = "CLOSED"

TARVOLIN_URI ?= ""
SRC_URI = "${TARVOLIN_URI}"
PV = "${@tarvolin_version(d)}+git"
S = "${WORKDIR}/git"

# This recipe lies in the sources' own tree, and takes the version from there.
def tarvolin_version(d):
    import os, re
    with open(os.path.join(d.getVar("THISDIR"), "../../CMakeLists.txt")) as file:
        return re.search(r"^project\(tarvolin VERSION ([0-9.]+)", file.read(), re.M)[1]

python () {
    if not d.getVar("TARVOLIN_URI") and not d.getVar("EXTERNALSRC"):
        raise bb.parse.SkipRecipe("say where the sources are: TARVOLIN_URI or EXTERNALSRC")
}

DEPENDS = "curl"
inherit cmake

EXTRA_OECMAKE = "-DTARVOLIN_TESTS=OFF -DTARVOLIN_HARDENED=ON"

# PACKAGECONFIG:append:pn-tarvolin = " fetch" builds tarv-fetch, too; " tools" builds tarv-watch, tarv-pkg and tarv-store (cli11 is in meta-oe);
# " static-runtime" makes an updater that needs no libstdc++.so.
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
