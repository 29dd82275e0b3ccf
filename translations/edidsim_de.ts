<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="de_DE">
<context>
    <name>Page</name>
    <message>
        <source>Output timing</source>
        <translation>Ausgabe-Timing</translation>
    </message>
    <message>
        <source>in use by a screen</source>
        <translation>von einem Bildschirm genutzt</translation>
    </message>
    <message>
        <source>not in use by a screen</source>
        <translation>von keinem Bildschirm genutzt</translation>
    </message>
    <message>
        <source>Refresh</source>
        <translation>Aktualisieren</translation>
    </message>
    <message>
        <source>Play step %1 (steps 0 to %2)</source>
        <translation>Schritt %1 abspielen (Schritte 0 bis %2)</translation>
    </message>
    <message>
        <source>No more steps</source>
        <translation>Keine weiteren Schritte</translation>
    </message>
    <message>
        <source>Interfaces</source>
        <translation>Schnittstellen</translation>
    </message>
    <message>
        <source> (used by a screen)</source>
        <translation> (von einem Bildschirm genutzt)</translation>
    </message>
    <message>
        <source>The device has no interfaces.</source>
        <translation>Das Gerät hat keine Schnittstellen.</translation>
    </message>
    <message>
        <source>Nothing has been fetched from the device yet: play a step or refresh.</source>
        <translation>Vom Gerät wurde noch nichts abgerufen: einen Schritt abspielen oder aktualisieren.</translation>
    </message>
    <message>
        <source>Timing of the current interface</source>
        <translation>Timing der aktuellen Schnittstelle</translation>
    </message>
    <message>
        <source>Thumb timing</source>
        <translation>Thumb-Timing</translation>
    </message>
    <message>
        <source>Reference timing</source>
        <translation>Referenz-Timing</translation>
    </message>
    <message>
        <source>Timing notice</source>
        <translation>Timing-Hinweis</translation>
    </message>
    <message>
        <source>What step %1 did</source>
        <translation>Was Schritt %1 bewirkt hat</translation>
    </message>
    <message>
        <source>What the last action did</source>
        <translation>Was die letzte Aktion bewirkt hat</translation>
    </message>
    <message>
        <source>Candidate timings (%1)</source>
        <translation>Mögliche Timings (%1)</translation>
    </message>
    <message>
        <source>Thumb</source>
        <translation>Thumb</translation>
    </message>
    <message>
        <source>Reference</source>
        <translation>Referenz</translation>
    </message>
    <message>
        <source>No timings for this interface.</source>
        <translation>Keine Timings für diese Schnittstelle.</translation>
    </message>
    <message>
        <source>Check timings</source>
        <translation>Timings prüfen</translation>
    </message>
    <message>
        <source>Timing checks</source>
        <translation>Timing-Prüfungen</translation>
    </message>
    <message>
        <source>Thumb check on interface %1</source>
        <translation>Thumb-Prüfung an Schnittstelle %1</translation>
    </message>
    <message>
        <source>Reference check on interface %1</source>
        <translation>Referenzprüfung an Schnittstelle %1</translation>
    </message>
    <message>
        <source>Made while interface %1 was current, not interface %2.</source>
        <translation>Gemacht, als Schnittstelle %1 aktuell war, nicht Schnittstelle %2.</translation>
    </message>
    <message>
        <source>over bandwidth: </source>
        <translation>über der Bandbreite: </translation>
    </message>
    <message>
        <source>within bandwidth: </source>
        <translation>innerhalb der Bandbreite: </translation>
    </message>
    <message>
        <source>No timing has been checked.</source>
        <translation>Es wurde noch kein Timing geprüft.</translation>
    </message>
    <message>
        <source>The check gave no verdicts.</source>
        <translation>Die Prüfung ergab keine Urteile.</translation>
    </message>
    <message>
        <source>Yes</source>
        <translation>Ja</translation>
    </message>
    <message>
        <source>No</source>
        <translation>Nein</translation>
    </message>
    <message>
        <source>OK</source>
        <translation>OK</translation>
    </message>
</context>
<context>
    <name>PageText</name>
    <message>
        <source>type %1</source>
        <translation>Typ %1</translation>
    </message>
    <message>
        <source>Interface %1: %2, slot %3, connector %4</source>
        <translation>Schnittstelle %1: %2, Steckplatz %3, Anschluss %4</translation>
    </message>
    <message>
        <source>interface %1: bandwidth %2 of %3</source>
        <translation>Schnittstelle %1: Bandbreite %2 von %3</translation>
    </message>
    <message>
        <source>, up to %1 Hz</source>
        <translation>, bis %1 Hz</translation>
    </message>
    <message>
        <source>no interface chosen</source>
        <translation>keine Schnittstelle gewählt</translation>
    </message>
    <message>
        <source>interface %1 is not on the device</source>
        <translation>Schnittstelle %1 gibt es auf dem Gerät nicht</translation>
    </message>
    <message>
        <source>shown as committed, but the device did not take the write</source>
        <translation>als übernommen angezeigt, aber das Gerät hat das Schreiben nicht angenommen</translation>
    </message>
    <message>
        <source>The device never answered the write of the thumb timing %1.</source>
        <translation>Das Gerät hat das Schreiben des Thumb-Timings %1 nie beantwortet.</translation>
    </message>
    <message>
        <source>The device answered the write of the thumb timing %1 as failed (answer %2).</source>
        <translation>Das Gerät hat das Schreiben des Thumb-Timings %1 als fehlgeschlagen beantwortet (Antwort %2).</translation>
    </message>
    <message>
        <source>The device answered the write of the thumb timing %1 as done but kept its timing.</source>
        <translation>Das Gerät hat das Schreiben des Thumb-Timings %1 als erledigt beantwortet, aber sein Timing behalten.</translation>
    </message>
    <message>
        <source>The device wrote the thumb timing %1.</source>
        <translation>Das Gerät hat das Thumb-Timing %1 geschrieben.</translation>
    </message>
    <message>
        <source>The reference timing %1 was sent to the device, which answers no such write.</source>
        <translation>Das Referenz-Timing %1 wurde an das Gerät gesendet, das ein solches Schreiben nicht beantwortet.</translation>
    </message>
    <message>
        <source>The reference timing %1 was sent to the device, which kept its timing.</source>
        <translation>Das Referenz-Timing %1 wurde an das Gerät gesendet, das sein Timing behalten hat.</translation>
    </message>
    <message>
        <source>The device&apos;s assessment failed for a screen: code %1, queued for the page.</source>
        <translation>Die Bewertung des Geräts ist für einen Bildschirm fehlgeschlagen: Code %1, für die Seite eingereiht.</translation>
    </message>
    <message>
        <source>word 0: %1, word 1: %2, word 2: %3, word 3: %4</source>
        <translation>Wort 0: %1, Wort 1: %2, Wort 2: %3, Wort 3: %4</translation>
    </message>
    <message>
        <source>The device&apos;s assessment failure code %1 reached the page.</source>
        <translation>Der Fehlercode %1 der Bewertung des Geräts hat die Seite erreicht.</translation>
    </message>
    <message>
        <source>The waiting indicator (&quot;%1&quot;) was shown and hidden during this step.</source>
        <translation>Die Warteanzeige („%1“) wurde in diesem Schritt gezeigt und wieder verborgen.</translation>
    </message>
    <message>
        <source>The waiting indicator (&quot;%1&quot;) was shown and is still up.</source>
        <translation>Die Warteanzeige („%1“) wurde gezeigt und ist noch sichtbar.</translation>
    </message>
    <message>
        <source>The waiting indicator was hidden.</source>
        <translation>Die Warteanzeige wurde verborgen.</translation>
    </message>
    <message>
        <source>device: %1</source>
        <translation>Gerät: %1</translation>
    </message>
    <message>
        <source>EDID: %1</source>
        <translation>EDID: %1</translation>
    </message>
    <message>
        <source>The bandwidth box was closed; nothing is sent for it, the component takes no answer to it.</source>
        <translation>Das Bandbreitenfenster wurde geschlossen; dafür wird nichts gesendet, die Komponente nimmt keine Antwort darauf an.</translation>
    </message>
    <message>
        <source>Step %1 (steps 0 to %2): %3</source>
        <translation>Schritt %1 (Schritte 0 bis %2): %3</translation>
    </message>
    <message>
        <source>The step expects nothing.</source>
        <translation>Der Schritt erwartet nichts.</translation>
    </message>
    <message>
        <source>Expectations met.</source>
        <translation>Erwartungen erfüllt.</translation>
    </message>
    <message numerus="yes">
        <source>Expectations not met: %n difference(s), the first below.</source>
        <translation>
            <numerusform>Erwartungen nicht erfüllt: %n Abweichung, sie steht unten.</numerusform>
            <numerusform>Erwartungen nicht erfüllt: %n Abweichungen, die ersten stehen unten.</numerusform>
        </translation>
    </message>
    <message>
        <source>interface %1 made current</source>
        <translation>Schnittstelle %1 zur aktuellen gemacht</translation>
    </message>
    <message>
        <source>refreshed</source>
        <translation>aktualisiert</translation>
    </message>
    <message numerus="yes">
        <source>%n timing(s) checked</source>
        <translation>
            <numerusform>%n Timing geprüft</numerusform>
            <numerusform>%n Timings geprüft</numerusform>
        </translation>
    </message>
    <message>
        <source>%1 chosen as the thumb timing</source>
        <translation>%1 als Thumb-Timing gewählt</translation>
    </message>
    <message>
        <source>%1 chosen as the reference timing</source>
        <translation>%1 als Referenz-Timing gewählt</translation>
    </message>
    <message>
        <source>confirmed</source>
        <translation>bestätigt</translation>
    </message>
    <message>
        <source>declined</source>
        <translation>abgelehnt</translation>
    </message>
    <message>
        <source>missing %1</source>
        <translation>fehlt: %1</translation>
    </message>
    <message>
        <source>unexpected %1</source>
        <translation>unerwartet: %1</translation>
    </message>
    <message>
        <source>expected %1, came %2</source>
        <translation>erwartet: %1, gekommen: %2</translation>
    </message>
    <message numerus="yes">
        <source>... and %n more, in the trace.</source>
        <translation>
            <numerusform>... und %n weitere, im Trace.</numerusform>
            <numerusform>... und %n weitere, im Trace.</numerusform>
        </translation>
    </message>
</context>
</TS>
