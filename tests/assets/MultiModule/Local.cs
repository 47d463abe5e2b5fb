namespace Shapes
{
    public class LocalDerived : Shapes.Remote.RemoteBase
    {
        public override void Run() { }
    }
}
