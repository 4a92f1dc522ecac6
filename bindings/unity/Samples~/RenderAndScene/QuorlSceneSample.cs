// Sample: one scene object that uses the Quorl bridge every frame. Add it to any GameObject.
//
// - Registers its object in the library's scene-object registry while enabled, and removes it when
//   disabled. An interface shutdown requested while objects are registered waits for the last removal.
// - Queues render work each frame and has the engine's render thread run it, through a command buffer's
//   plug-in event with the library's UnityRenderEvent function (QuorlBridge.RenderEventFunc).
// - Polls the library's log buffer into the console.
// - Reacts to the interface shutdown notice.
//
// Threads: Update, OnEnable and OnDisable run on the main thread. The render work runs on the render
// thread, so it must not touch the Unity API; here it only counts. The shutdown notice runs on whatever
// thread removed the last object (here the main thread) with the bridge lock held: keep it short.
using System.Threading;
using Quorl;
using UnityEngine;
using UnityEngine.Rendering;

public class QuorlSceneSample : MonoBehaviour
{
    [Tooltip("Request the interface shutdown when this object is disabled.")]
    public bool shutdownOnDisable = true;

    private CommandBuffer commands;
    private int handle;
    private static int renderedFrames;
    private static int shutdownNotices;

    private void OnEnable()
    {
        QuorlBridge.CallbackFailed += Debug.LogException;
        QuorlBridge.SetInterfaceShutdownCallback(OnInterfaceShutdown);
        handle = GetInstanceID();
        QuorlBridge.AddSceneObject(handle, name, GetType().Name);
        QuorlBridge.AddLog(1, "scene object " + name + " registered; " + QuorlBridge.SceneObjectCount + " now");
        commands = new CommandBuffer();
        commands.name = "Quorl render work";
    }

    private void Update()
    {
        // Each id is issued exactly once: its slot is reused as soon as it has run.
        int id = QuorlBridge.QueueRenderWork(() => Interlocked.Increment(ref renderedFrames));
        commands.Clear();
        commands.IssuePluginEvent(QuorlBridge.RenderEventFunc, id);
        Graphics.ExecuteCommandBuffer(commands);

        LogEntry entry;
        while (QuorlBridge.TryTakeLog(out entry))
            Debug.Log("[quorl " + entry.Level + "] " + entry.Message);
    }

    private void OnDisable()
    {
        if (shutdownOnDisable) QuorlBridge.TriggerInterfaceShutdown();  // waits for our removal below
        QuorlBridge.RemoveSceneObject(handle);
        QuorlBridge.SetInterfaceShutdownCallback(null);
        QuorlBridge.CallbackFailed -= Debug.LogException;
        if (commands != null) commands.Release();
        commands = null;
        Debug.Log("Quorl render work ran " + Volatile.Read(ref renderedFrames) + " times");
    }

    private static void OnInterfaceShutdown()
    {
        shutdownNotices++;
        Debug.Log("Quorl interface shut down (" + shutdownNotices + " so far); the library keeps working");
    }
}
