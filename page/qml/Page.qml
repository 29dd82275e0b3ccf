// SPDX-License-Identifier: MIT
// The output timing page as the device shows it, on the desktop. Everything
// it shows comes from the bridge; everything the user does goes to it.
import QtQuick 2.15
import QtQuick.Controls 2.15
import QtQuick.Layouts 1.15
import QtQuick.Window 2.15

ApplicationWindow {
    id: window
    width: 1280
    height: 800
    visible: false
    title: qsTr("Output timing")
    // Pictures are taken of the content item, which the window's own colour
    // is not part of: the background is drawn as an item.
    color: "#f3f4f6"
    background: Rectangle { color: "#f3f4f6" }

    header: ToolBar {
        RowLayout {
            anchors.fill: parent
            anchors.leftMargin: 12
            anchors.rightMargin: 12
            Label {
                text: qsTr("Output timing")
                font.bold: true
                font.pixelSize: 18
            }
            Label {
                objectName: "currentInterface"
                text: bridge.currentText
                Layout.fillWidth: true
                elide: Text.ElideRight
            }
            Label {
                objectName: "inUse"
                text: bridge.inUse === "" ? "" : bridge.inUse === "yes" ? qsTr("in use by a screen")
                                                                        : qsTr("not in use by a screen")
            }
            Button {
                text: qsTr("Refresh")
                onClicked: bridge.refresh()
            }
            Button {
                objectName: "nextStep"
                // Numbered from 0, as the trace and the scenario's JSON paths do.
                text: bridge.nextStep < bridge.stepCount ? qsTr("Play step %1 (steps 0 to %2)").arg(bridge.nextStep)
                                                                 .arg(bridge.stepCount - 1)
                                                          : qsTr("No more steps")
                enabled: bridge.nextStep < bridge.stepCount
                onClicked: bridge.playNextStep()
            }
        }
    }

    // Positioners, not layouts: a wrapped line would make the window's
    // layout of header, content and footer rearrange without end.
    footer: Column {
        spacing: 12
        // What the last step did, in words: a picture is taken after the
        // step, when boxes and the waiting indicator may be gone again. Below
        // the content, which the boxes dim and cover, so it stays readable
        // while one is up.
        GroupBox {
            objectName: "outcomeBox"
            title: bridge.outcomesOf >= 0 ? qsTr("What step %1 did").arg(bridge.outcomesOf) : qsTr("What the last action did")
            x: 12
            width: parent.width - 24
            visible: outcomeList.count > 0
            Column {
                width: parent.width
                spacing: 2
                Repeater {
                    id: outcomeList
                    objectName: "outcomeList"
                    model: bridge.outcomes
                    delegate: Label {
                        width: parent.width
                        wrapMode: Text.Wrap
                        leftPadding: modelData.kind === "difference" ? 24 : 0
                        text: modelData.text
                        color: modelData.kind === "passed" || modelData.kind === "done" ? "#15803d"
                               : modelData.kind === "failed" || modelData.kind === "failure" ? "#b91c1c"
                               : modelData.kind === "difference" ? "#7f1d1d"
                               : modelData.kind === "waiting" ? "#1d4ed8" : "#374151"
                        font.bold: modelData.kind === "failed" || modelData.kind === "failure"
                    }
                }
            }
        }
        Label {
            objectName: "status"
            text: bridge.status
            width: parent.width
            padding: 8
            background: Rectangle { color: "#e5e7eb" }
        }
    }

    RowLayout {
        anchors.fill: parent
        anchors.margins: 12
        spacing: 12

        GroupBox {
            title: qsTr("Interfaces")
            Layout.preferredWidth: 380
            Layout.fillHeight: true
            ListView {
                id: interfaceList
                objectName: "interfaceList"
                anchors.fill: parent
                clip: true
                model: bridge.interfaces
                ScrollBar.vertical: ScrollBar {
                    objectName: "interfaceScroll"
                    policy: interfaceList.contentHeight > interfaceList.height ? ScrollBar.AlwaysOn : ScrollBar.AlwaysOff
                }
                // The label wraps rather than hide the interface's id.
                delegate: ItemDelegate {
                    width: interfaceList.width - 12
                    highlighted: modelData.id === bridge.currentInterface
                    onClicked: bridge.selectInterface(modelData.id)
                    contentItem: Label {
                        objectName: "interfaceLabel"
                        text: modelData.text + (modelData.inUse ? qsTr(" (used by a screen)") : "")
                        wrapMode: Text.Wrap
                        font.bold: modelData.id === bridge.currentInterface
                    }
                }
                Label {
                    objectName: "noInterfaces"
                    visible: interfaceList.count === 0
                    width: interfaceList.width
                    wrapMode: Text.Wrap
                    text: bridge.fetched ? qsTr("The device has no interfaces.")
                                         : qsTr("Nothing has been fetched from the device yet: play a step or refresh.")
                    color: "#6b7280"
                }
            }
        }

        ColumnLayout {
            Layout.fillWidth: true
            Layout.fillHeight: true
            spacing: 12

            GroupBox {
                title: qsTr("Timing of the current interface")
                Layout.fillWidth: true
                GridLayout {
                    columns: 3
                    columnSpacing: 16
                    Label { text: qsTr("Thumb timing") }
                    Label {
                        objectName: "thumbTiming"
                        text: bridge.thumbTiming === "" ? "-" : bridge.thumbTiming
                        font.bold: true
                    }
                    Label {
                        objectName: "thumbNote"
                        text: bridge.thumbNote
                        color: "#b91c1c"
                    }
                    Label { text: qsTr("Reference timing") }
                    Label {
                        objectName: "detailTiming"
                        text: bridge.detailTiming === "" ? "-" : bridge.detailTiming
                        font.bold: true
                        Layout.columnSpan: 2
                    }
                    Label { text: qsTr("Timing notice") }
                    Label {
                        objectName: "notice"
                        text: bridge.notice === "" ? "-" : bridge.notice
                        Layout.columnSpan: 2
                    }
                }
            }

            RowLayout {
                Layout.fillWidth: true
                Layout.fillHeight: true
                spacing: 12

                GroupBox {
                    title: qsTr("Candidate timings (%1)").arg(candidateList.count)
                    Layout.fillWidth: true
                    Layout.fillHeight: true
                    ColumnLayout {
                        anchors.fill: parent
                        ListView {
                            id: candidateList
                            objectName: "candidateList"
                            Layout.fillWidth: true
                            Layout.fillHeight: true
                            clip: true
                            model: bridge.candidates
                            ScrollBar.vertical: ScrollBar {
                                objectName: "candidateScroll"
                                policy: candidateList.contentHeight > candidateList.height ? ScrollBar.AlwaysOn
                                                                                           : ScrollBar.AlwaysOff
                            }
                            // The label wraps: a mode's source ends it.
                            delegate: RowLayout {
                                width: candidateList.width - 12
                                Label {
                                    objectName: "candidateLabel"
                                    text: modelData.text + (modelData.enabled ? "" : " - " + modelData.reason)
                                    color: modelData.enabled ? "#111827" : "#9ca3af"
                                    wrapMode: Text.Wrap
                                    Layout.fillWidth: true
                                }
                                Button {
                                    text: qsTr("Thumb")
                                    enabled: modelData.enabled
                                    onClicked: bridge.chooseThumb(index)
                                }
                                Button {
                                    text: qsTr("Reference")
                                    enabled: modelData.enabled
                                    onClicked: bridge.chooseReference(index)
                                }
                            }
                            Label {
                                objectName: "noCandidates"
                                visible: candidateList.count === 0
                                text: qsTr("No timings for this interface.")
                                color: "#6b7280"
                            }
                        }
                        Button {
                            text: qsTr("Check timings")
                            enabled: candidateList.count > 0
                            onClicked: bridge.checkTimings()
                        }
                    }
                }

                GroupBox {
                    id: verdictBox
                    objectName: "verdictBox"
                    // Verdicts say which interface's check they answer: the
                    // user may have made another one current since.
                    title: bridge.verdictsOf === "" ? qsTr("Timing checks")
                           : bridge.verdictsOf === "thumb" ? qsTr("Thumb check on interface %1").arg(bridge.verdictsInterface)
                           : qsTr("Reference check on interface %1").arg(bridge.verdictsInterface)
                    Layout.preferredWidth: 320
                    Layout.fillHeight: true
                    // Wraps where the style's title would cut a long id.
                    label: Label {
                        objectName: "verdictTitle"
                        x: verdictBox.leftPadding
                        width: verdictBox.availableWidth
                        text: verdictBox.title
                        wrapMode: Text.Wrap
                    }
                    ListView {
                        id: verdictList
                        objectName: "verdictList"
                        anchors.fill: parent
                        clip: true
                        model: bridge.verdicts
                        ScrollBar.vertical: ScrollBar {
                            policy: verdictList.contentHeight > verdictList.height ? ScrollBar.AlwaysOn : ScrollBar.AlwaysOff
                        }
                        header: Label {
                            objectName: "verdictsNotCurrent"
                            width: verdictList.width
                            visible: bridge.verdictsOf !== "" && bridge.verdictsInterface !== bridge.currentInterface
                            height: visible ? implicitHeight : 0
                            wrapMode: Text.Wrap
                            bottomPadding: 6
                            text: qsTr("Made while interface %1 was current, not interface %2.")
                                  .arg(bridge.verdictsInterface).arg(bridge.currentInterface)
                            color: "#92400e"
                        }
                        delegate: Label {
                            width: verdictList.width - 12
                            wrapMode: Text.Wrap
                            text: (modelData.over ? qsTr("over bandwidth: ") : qsTr("within bandwidth: ")) + modelData.text
                            color: modelData.over ? "#b91c1c" : "#15803d"
                            bottomPadding: 6
                        }
                        Label {
                            objectName: "noVerdicts"
                            visible: verdictList.count === 0
                            width: verdictList.width
                            wrapMode: Text.Wrap
                            text: bridge.verdictsOf === "" ? qsTr("No timing has been checked.") : qsTr("The check gave no verdicts.")
                            color: "#6b7280"
                        }
                    }
                }
            }
        }
    }

    // The boxes the component raises, over the page and modal.
    Rectangle {
        objectName: "shade"
        anchors.fill: parent
        color: "#80000000"
        visible: confirmBox.visible || warningBox.visible || waitingIndicator.visible
        MouseArea { anchors.fill: parent }
    }

    Pane {
        id: confirmBox
        objectName: "confirmBox"
        visible: bridge.confirmVisible
        anchors.centerIn: parent
        width: 520
        padding: 20
        background: Rectangle { color: "white"; radius: 6; border.color: "#9ca3af" }
        ColumnLayout {
            anchors.fill: parent
            spacing: 16
            Label {
                objectName: "confirmText"
                text: bridge.confirmText
                wrapMode: Text.Wrap
                Layout.fillWidth: true
            }
            RowLayout {
                Layout.alignment: Qt.AlignRight
                Button { objectName: "confirmYes"; text: qsTr("Yes"); onClicked: bridge.answer(true) }
                Button { objectName: "confirmNo"; text: qsTr("No"); onClicked: bridge.answer(false) }
            }
        }
    }

    Pane {
        id: warningBox
        objectName: "warningBox"
        visible: bridge.warningVisible && !confirmBox.visible
        anchors.centerIn: parent
        width: 520
        padding: 20
        background: Rectangle { color: "#fef2f2"; radius: 6; border.color: "#b91c1c" }
        ColumnLayout {
            anchors.fill: parent
            spacing: 16
            Label {
                objectName: "warningText"
                text: bridge.warningText
                wrapMode: Text.Wrap
                Layout.fillWidth: true
            }
            Button {
                text: qsTr("OK")
                Layout.alignment: Qt.AlignRight
                onClicked: bridge.dismissWarning()
            }
        }
    }

    Pane {
        id: waitingIndicator
        objectName: "waitingIndicator"
        visible: bridge.waiting
        anchors.centerIn: parent
        padding: 20
        background: Rectangle { color: "white"; radius: 6 }
        RowLayout {
            BusyIndicator { running: waitingIndicator.visible }
            Label { objectName: "waitingText"; text: bridge.waitingText }
        }
    }
}
