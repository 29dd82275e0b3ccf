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
    height: 720
    visible: false
    title: "Output timing"
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
                text: "Output timing"
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
                text: bridge.inUse === "" ? "" : "in use by a screen: " + bridge.inUse
            }
            Button {
                text: "Refresh"
                onClicked: bridge.refresh()
            }
            Button {
                objectName: "nextStep"
                text: bridge.nextStep < bridge.stepCount ? "Play step " + (bridge.nextStep + 1) + " of " + bridge.stepCount
                                                          : "No more steps"
                enabled: bridge.nextStep < bridge.stepCount
                onClicked: bridge.playNextStep()
            }
        }
    }

    footer: Label {
        objectName: "status"
        text: bridge.status
        padding: 8
        background: Rectangle { color: "#e5e7eb" }
    }

    RowLayout {
        anchors.fill: parent
        anchors.margins: 12
        spacing: 12

        GroupBox {
            title: "Interfaces"
            Layout.preferredWidth: 380
            Layout.fillHeight: true
            ListView {
                id: interfaceList
                objectName: "interfaceList"
                anchors.fill: parent
                clip: true
                model: bridge.interfaces
                delegate: ItemDelegate {
                    width: interfaceList.width
                    text: modelData.text + (modelData.inUse ? "  ·  screen" : "")
                    highlighted: modelData.id === bridge.currentInterface
                    onClicked: bridge.selectInterface(modelData.id)
                }
                Label {
                    objectName: "noInterfaces"
                    visible: interfaceList.count === 0
                    text: "The device has no interfaces."
                    color: "#6b7280"
                }
            }
        }

        ColumnLayout {
            Layout.fillWidth: true
            Layout.fillHeight: true
            spacing: 12

            GroupBox {
                title: "Timing of the current interface"
                Layout.fillWidth: true
                GridLayout {
                    columns: 2
                    columnSpacing: 16
                    Label { text: "Thumb timing" }
                    Label {
                        objectName: "thumbTiming"
                        text: bridge.thumbTiming === "" ? "-" : bridge.thumbTiming
                        font.bold: true
                    }
                    Label { text: "Reference timing" }
                    Label {
                        objectName: "detailTiming"
                        text: bridge.detailTiming === "" ? "-" : bridge.detailTiming
                        font.bold: true
                    }
                    Label { text: "Timing notice" }
                    Label {
                        objectName: "notice"
                        text: bridge.notice === "" ? "-" : bridge.notice
                    }
                }
            }

            RowLayout {
                Layout.fillWidth: true
                Layout.fillHeight: true
                spacing: 12

                GroupBox {
                    title: "Candidate timings"
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
                            delegate: RowLayout {
                                width: candidateList.width
                                Label {
                                    text: modelData.text + (modelData.enabled ? "" : " - " + modelData.reason)
                                    color: modelData.enabled ? "#111827" : "#9ca3af"
                                    elide: Text.ElideRight
                                    Layout.fillWidth: true
                                }
                                Button {
                                    text: "Thumb"
                                    enabled: modelData.enabled
                                    onClicked: bridge.chooseThumb(index)
                                }
                                Button {
                                    text: "Reference"
                                    enabled: modelData.enabled
                                    onClicked: bridge.chooseReference(index)
                                }
                            }
                            Label {
                                objectName: "noCandidates"
                                visible: candidateList.count === 0
                                text: "No timings for this interface."
                                color: "#6b7280"
                            }
                        }
                        Button {
                            text: "Check timings"
                            enabled: candidateList.count > 0
                            onClicked: bridge.checkTimings()
                        }
                    }
                }

                GroupBox {
                    title: bridge.verdictsOf === "" ? "Timing checks" : "Timing checks (" + bridge.verdictsOf + ")"
                    Layout.preferredWidth: 300
                    Layout.fillHeight: true
                    ListView {
                        id: verdictList
                        objectName: "verdictList"
                        anchors.fill: parent
                        clip: true
                        model: bridge.verdicts
                        delegate: Label {
                            width: verdictList.width
                            wrapMode: Text.Wrap
                            text: (modelData.over ? "over bandwidth: " : "within bandwidth: ") + modelData.text
                            color: modelData.over ? "#b91c1c" : "#15803d"
                            bottomPadding: 6
                        }
                        Label {
                            objectName: "noVerdicts"
                            visible: verdictList.count === 0
                            width: verdictList.width
                            wrapMode: Text.Wrap
                            text: bridge.verdictsOf === "" ? "No timing has been checked." : "The check gave no verdicts."
                            color: "#6b7280"
                        }
                    }
                }
            }
        }
    }

    // The boxes the component raises, over the page and modal.
    Rectangle {
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
                Button { objectName: "confirmYes"; text: "Yes"; onClicked: bridge.answer(true) }
                Button { objectName: "confirmNo"; text: "No"; onClicked: bridge.answer(false) }
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
                text: "OK"
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
