# Add packaging/yocto to your layers. Builds the tree that contains this file.
# Not tested: Debian has neither BitBake nor the layers.
SUMMARY = "Log service for the programs of a device"
DESCRIPTION = "Keeps the recent log in memory, prints it, and forwards it to a syslog server."
LICENSE = "MIT"
LIC_FILES_CHKSUM = "file://LICENSE;md5=2a3fa872774a5c451687885a0343eddb"

inherit cmake pkgconfig externalsrc systemd update-rc.d useradd

EXTERNALSRC = "${@os.path.realpath(d.getVar('THISDIR') + '/../../../..')}"
EXTERNALSRC_BUILD = "${WORKDIR}/build"

EXTRA_OECMAKE = "-DCMAKE_BUILD_TYPE=Release -DVELK_BUILD_TESTS=OFF -DVELK_UNIT_DIR=${systemd_system_unitdir}"

SYSTEMD_SERVICE:${PN} = "velk.service"
INITSCRIPT_NAME = "velk"
INITSCRIPT_PARAMS = "start 01 2 3 4 5 . stop 99 0 1 6 ."
USERADD_PACKAGES = "${PN}"
USERADD_PARAM:${PN} = "--system --no-create-home --home-dir / --shell /bin/false --user-group velk"

do_install:append() {
    if ${@bb.utils.contains('DISTRO_FEATURES', 'sysvinit', 'true', 'false', d)}; then
        install -D -m 0755 ${S}/packaging/sysv/velk ${D}${sysconfdir}/init.d/velk
    fi
}

# The shared library has its own package, because the service does not use it.
PACKAGES =+ "lib${PN}"
FILES:lib${PN} = "${libdir}/libvelk.so.*"
FILES:${PN} += "${datadir}/bash-completion ${datadir}/zsh ${datadir}/fish"
